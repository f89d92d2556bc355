#include "NvxQtCommon/control/TmiDeviceController.h"

TmiDeviceController::TmiDeviceController(HydConnectionType connType, QObject* parent)
    : NvxDeviceController(connType, parent)
{
    // The base has put a generic record there already, so that it stays generic: this order is intended.
    if (!devicePtr())
        setDevice(std::make_shared<TmiDevice>(DevTypeTmi));
    createConnections();
}

TmiDeviceController::TmiDeviceController(std::shared_ptr<TmiDevice> device, HydConnectionType connType,
                                         QObject* parent)
    : NvxDeviceController(std::move(device), connType, parent)
{
    createConnections();
}

void TmiDeviceController::createConnections() {}

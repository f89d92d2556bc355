#include "NvxQtCommon/array/ZcrDeviceController.h"

ZcrDeviceController::ZcrDeviceController(HydConnectionType connType, QObject* parent)
    : ZcrDeviceController(nullptr, connType, parent)
{
}

ZcrDeviceController::ZcrDeviceController(std::shared_ptr<ZcrDevice> device, HydConnectionType connType,
                                         QObject* parent)
    : NvxDeviceController(device ? std::move(device) : std::make_shared<ZcrDevice>(DevTypeZcr), connType,
                          parent)
{
}

void ZcrDeviceController::sendJobSetup(const JobTagMap&, bool) {}

bool ZcrDeviceController::sendArrayJobSetup(const JobTagMap& tags, bool bDelayed)
{
    sendJobSetup(tags, bDelayed);
    return true;
}

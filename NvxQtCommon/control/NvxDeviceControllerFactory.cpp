#include "NvxQtCommon/array/ZcrDeviceController.h"
#include "NvxQtCommon/control/HydDeviceController.h"
#include "NvxQtCommon/control/NvxDeviceController.h"
#include "NvxQtCommon/control/TdRecDeviceController.h"
#include "NvxQtCommon/control/TmiDeviceController.h"

// In a file of its own, since it is the one place of this room that knows the array controller.
std::shared_ptr<NvxDeviceController> NvxDeviceController::createController(std::shared_ptr<HydDevice> device,
                                                                           HydConnectionType connType)
{
    if (!device)
        return {};
    switch (device->devType()) {
    case DevTypeRecorderA:
    case DevTypeRecorderB:
    case DevTypeSkiff:
        return std::make_shared<HydDeviceController>(std::move(device), connType);
    case DevTypeTmi:
        return std::make_shared<TmiDeviceController>(std::dynamic_pointer_cast<TmiDevice>(device), connType);
    case DevTypeTdRec:
        return std::make_shared<TdRecDeviceController>(std::dynamic_pointer_cast<TdRecDevice>(device),
                                                       connType);
    case DevTypeZcr:
        return std::make_shared<ZcrDeviceController>(std::dynamic_pointer_cast<ZcrDevice>(device), connType);
    default:
        return std::make_shared<NvxDeviceController>(std::move(device), connType);
    }
}

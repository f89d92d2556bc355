#pragma once

#include "NvxQtCommon/control/NvxDeviceController.h"

/// Controller of a TMI device (type 8). Lives on the thread that created it.
class NVXQTCOMMON_EXPORT TmiDeviceController : public NvxDeviceController
{
    Q_OBJECT

public:
    explicit TmiDeviceController(HydConnectionType connType, QObject* parent = nullptr);
    TmiDeviceController(std::shared_ptr<TmiDevice> device, HydConnectionType connType,
                        QObject* parent = nullptr);

    /// Has nothing to connect beyond what the base class does.
    void createConnections();

Q_SIGNALS:
    /// Emitted nowhere.
    void channelStatus();
};

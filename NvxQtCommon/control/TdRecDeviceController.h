#pragma once

#include "NvxQtCommon/control/NvxDeviceController.h"

/// Controller of a TD recorder (type 13). Lives on the thread that created it.
class NVXQTCOMMON_EXPORT TdRecDeviceController : public NvxDeviceController
{
    Q_OBJECT

public:
    explicit TdRecDeviceController(HydConnectionType connType, QObject* parent = nullptr);
    TdRecDeviceController(std::shared_ptr<TdRecDevice> device, HydConnectionType connType,
                          QObject* parent = nullptr);

    void sendJobSetup(const JobTagMap& tags, bool bDelayed) override;
    /// Has nothing to connect beyond what the base class does.
    void createConnections();

Q_SIGNALS:
    /// Emitted nowhere.
    void channelStatus();
};

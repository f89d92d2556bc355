#pragma once

#include "NvxQtCommon/control/NvxDeviceController.h"

/// Controller of an array controller (type 16). It has no command channel of the ordinary kind, so no command
/// adapter and no thread are made for it. In this version nothing is sent to an array controller. Lives on
/// the thread that created it.
class NVXQTCOMMON_EXPORT ZcrDeviceController : public NvxDeviceController
{
    Q_OBJECT

public:
    explicit ZcrDeviceController(HydConnectionType connType, QObject* parent = nullptr);
    /// A null device counts as a fresh record of type 16.
    ZcrDeviceController(std::shared_ptr<ZcrDevice> device, HydConnectionType connType,
                        QObject* parent = nullptr);

    /// A setup never goes out on a command channel.
    void sendJobSetup(const JobTagMap& tags, bool bDelayed) override;

protected:
    bool sendArrayJobSetup(const JobTagMap& tags, bool bDelayed) override;
};

#pragma once

#include "NvxQtCommon/contract/device/DeviceVariants.h"
#include "NvxQtCommon/contract/device/HydDevice.h"
#include "NvxQtCommon/contract/device/SkiffDevice.h"
#include "NvxQtCommon/contract/device/ZcrDevice.h"
#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/identity/HydEnums.h"
#include "NvxQtCommon/contract/identity/NvxNetRecords.h"
#include "NvxQtCommon/contract/job/HydJobSettings.h"
#include "NvxQtCommon/contract/message/HydControlPayloads.h"
#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"
#include "NvxQtCommon/contract/message/HydMarcoPayloads.h"
#include "NvxQtCommon/contract/message/HydTrigger.h"
#include "NvxQtCommon/contract/recording/DetectorRecords.h"
#include "NvxQtCommon/contract/recording/DetectorSettings.h"
#include "NvxQtCommon/contract/recording/NvxWavTestInfoData.h"
#include "NvxQtCommon/contract/stream/HydStreamType.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"
#include "NvxQtCommon/control/HydControlError.h"
#include "NvxQtCommon/control/SActiveTrigger.h"

#include <QMetaType>

#include <memory>
#include <string>
#include <vector>

// What travels through the signals of this library, made known to Qt's meta-type system. Headers that declare
// signals with these types include this file, so that each type has one name everywhere.

Q_DECLARE_METATYPE(HydDeviceType)
Q_DECLARE_METATYPE(HydConnectionType)
Q_DECLARE_METATYPE(HydChannel)
Q_DECLARE_METATYPE(HydPort)
Q_DECLARE_METATYPE(HydPortConnStatus)
Q_DECLARE_METATYPE(HydNetworkStatus)
Q_DECLARE_METATYPE(NvxPingResult)
Q_DECLARE_METATYPE(HydConfigStat)
Q_DECLARE_METATYPE(HydBattStatus)
Q_DECLARE_METATYPE(HydControlError)
Q_DECLARE_METATYPE(HydStreamType)

Q_DECLARE_METATYPE(NvxIpAddr)
Q_DECLARE_METATYPE(NvxMacAddr)
Q_DECLARE_METATYPE(NvxNetHostInfo)
Q_DECLARE_METATYPE(HydDeviceId)
Q_DECLARE_METATYPE(NvxDevice)
Q_DECLARE_METATYPE(HydDevice)
Q_DECLARE_METATYPE(HydJobSettings)
Q_DECLARE_METATYPE(NvxWavTestInfoData)
Q_DECLARE_METATYPE(SImpDetectSettings)
Q_DECLARE_METATYPE(SSELSettings)
Q_DECLARE_METATYPE(SActiveTrigger)
Q_DECLARE_METATYPE(std::string)
Q_DECLARE_METATYPE(std::vector<HydDeviceId>)

Q_DECLARE_METATYPE(std::shared_ptr<NvxDevice>)
Q_DECLARE_METATYPE(std::shared_ptr<HydDevice>)
Q_DECLARE_METATYPE(std::shared_ptr<ZcrDevice>)
Q_DECLARE_METATYPE(std::shared_ptr<HydJobSetupErr>)
Q_DECLARE_METATYPE(std::shared_ptr<HydTrigger>)
Q_DECLARE_METATYPE(std::shared_ptr<HydControlMsgPayload>)
Q_DECLARE_METATYPE(std::shared_ptr<const HydControlMsgPayload>)
Q_DECLARE_METATYPE(std::shared_ptr<const HydEnquireCmd>)
Q_DECLARE_METATYPE(std::shared_ptr<const HydEnquireTimeSync>)
Q_DECLARE_METATYPE(std::shared_ptr<const HydDataCollectCmd>)
Q_DECLARE_METATYPE(std::shared_ptr<HydMarcoCommandPayload>)
Q_DECLARE_METATYPE(std::shared_ptr<HydStreamMessagePayload>)
Q_DECLARE_METATYPE(std::shared_ptr<HydStreamEventHeaderPayload>)
Q_DECLARE_METATYPE(std::shared_ptr<HydStreamDataPayload>)
Q_DECLARE_METATYPE(std::shared_ptr<HydStreamNotifyPayload>)
Q_DECLARE_METATYPE(std::shared_ptr<HydStatusDataPayload>)
Q_DECLARE_METATYPE(std::shared_ptr<SWavStatistics>)
Q_DECLARE_METATYPE(std::shared_ptr<SImpulseStatistics>)
Q_DECLARE_METATYPE(std::shared_ptr<SClickStatistics>)

/// Registers the types above by name, for connections made with SIGNAL() and SLOT() and for
/// QMetaType::fromName(). Cheap to call again; from any thread. Controllers and adapters call it.
NVXQTCOMMON_EXPORT void registerNvxMetaTypes();

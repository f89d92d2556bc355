#include "NvxQtCommon/control/MetaTypes.h"

namespace {

template <typename... Types> bool registerAll()
{
    (qRegisterMetaType<Types>(), ...);
    return true;
}

} // namespace

void registerNvxMetaTypes()
{
    [[maybe_unused]] static const bool registered =
        registerAll<HydDeviceType, HydConnectionType, HydChannel, HydPort, HydPortConnStatus,
                    HydNetworkStatus, NvxPingResult, HydConfigStat, HydBattStatus, HydControlError,
                    HydStreamType, NvxIpAddr, NvxMacAddr, NvxNetHostInfo, HydDeviceId, NvxDevice, HydDevice,
                    HydJobSettings, NvxWavTestInfoData, std::string, std::vector<HydDeviceId>,
                    std::shared_ptr<NvxDevice>, std::shared_ptr<HydDevice>, std::shared_ptr<ZcrDevice>,
                    std::shared_ptr<HydJobSetupErr>, std::shared_ptr<HydTrigger>,
                    std::shared_ptr<HydControlMsgPayload>, std::shared_ptr<const HydControlMsgPayload>,
                    std::shared_ptr<const HydEnquireCmd>, std::shared_ptr<const HydEnquireTimeSync>,
                    std::shared_ptr<const HydDataCollectCmd>, std::shared_ptr<HydMarcoCommandPayload>,
                    std::shared_ptr<HydStreamMessagePayload>, std::shared_ptr<HydStreamEventHeaderPayload>,
                    std::shared_ptr<HydStreamDataPayload>, std::shared_ptr<HydStreamNotifyPayload>,
                    std::shared_ptr<HydStatusDataPayload>, SImpDetectSettings, SSELSettings, SActiveTrigger,
                    std::shared_ptr<SWavStatistics>, std::shared_ptr<SImpulseStatistics>,
                    std::shared_ptr<SClickStatistics>>();
}

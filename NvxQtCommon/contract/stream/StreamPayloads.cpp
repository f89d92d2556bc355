#include "NvxQtCommon/contract/stream/StreamPayloads.h"

HydStreamMessagePayload::~HydStreamMessagePayload() = default;

HydStreamEventHeaderPayload::HydStreamEventHeaderPayload(
    std::shared_ptr<HydEventKeyChunk const> key,
    std::vector<std::shared_ptr<HydDeviceInfoChunk const>> devices,
    std::vector<std::shared_ptr<HydStreamStatusChunk const>> statuses, HydStreamSetupContainer setup,
    std::vector<std::shared_ptr<HydAmplScalingChunk const>> scalings, unsigned char numChannels,
    std::shared_ptr<HydDeviceInfoChunk const> arrayMaster)
    : m_key(std::move(key)), m_devices(std::move(devices)), m_statuses(std::move(statuses)),
      m_setup(std::move(setup)), m_scalings(std::move(scalings)), m_numChannels(numChannels),
      m_arrayMaster(std::move(arrayMaster))
{
}

void HydStreamDataPayload::ResetD(unsigned int n)
{
    // The chunk is const to consumers; its double values are the one thing that the stream adapter fills in
    // later.
    if (m_data)
        std::const_pointer_cast<HydStreamDataChunk>(m_data)->resetDoubles(n);
}

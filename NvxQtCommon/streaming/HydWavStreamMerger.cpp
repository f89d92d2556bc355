#include "NvxQtCommon/streaming/HydWavStreamMerger.h"

#include <QDebug>

#include <limits>
#include <new>

namespace {

uint8_t channelCount(const JobTagMap& tags)
{
    const auto found = tags.find(JobTagDeviceList);
    if (found == tags.end())
        return 0;
    const auto list = std::dynamic_pointer_cast<TmiDeviceListTag>(found->second);
    // 256 devices are 0 channels. This is intended.
    return list != nullptr ? static_cast<uint8_t>(list->deviceList().size()) : uint8_t{0};
}

HydWavStreamMerger::Bytes bytes(int64_t size)
{
    if (size > std::numeric_limits<int32_t>::max())
        throw std::bad_array_new_length();
    return {std::make_unique_for_overwrite<unsigned char[]>(static_cast<size_t>(size)),
            static_cast<int32_t>(size)};
}

HydWavStreamMerger::Block block(int64_t size, uint8_t parts, uint8_t width)
{
    return {bytes(size), parts, width};
}

} // namespace

HydWavStreamMerger::HydWavStreamMerger(std::map<JobTagKey, std::shared_ptr<HydJobSettingsTag>> tags,
                                       unsigned int rate, unsigned char bytesPerSample, QObject* parent)
    : QObject(parent)
{
    try {
        allocate(channelCount(tags), rate, bytesPerSample);
    } catch (...) {
        qDebug() << "Failed to allocate StoredData. Try reducing data size (channels, rate, resolution)";
        throw;
    }
}

void HydWavStreamMerger::allocate(int64_t channels, int64_t rate, uint8_t bytesPerSample)
{
    const auto slotBytes = [channels](uint8_t width) {
        return block(kSlots * channels * width, kSlots, width);
    };
    m_store.firstFlags = bytes(channels);
    m_store.secondFlags = bytes(channels);
    m_store.firstSlots = slotBytes(1);
    m_store.samples =
        block(rate * kSlots * channels * bytesPerSample, static_cast<uint8_t>(channels), bytesPerSample);
    m_store.firstWide = slotBytes(2);
    m_store.secondWide = slotBytes(2);
    m_store.secondSlots = slotBytes(1);
    m_store.thirdSlots = slotBytes(1);
}

void HydWavStreamMerger::handleWavEventHdr(std::shared_ptr<HydStreamEventHeaderPayload> /*header*/) {}

void HydWavStreamMerger::handleWavData(std::shared_ptr<HydStreamDataPayload> /*data*/) {}

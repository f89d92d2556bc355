#include "WavFeeder.h"

#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "NvxQtCommon/contract/recording/NvxWavDataChunk.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataTMI.h"
#include "NvxQtCommon/contract/recording/WavStreamEvent.h"

bool WavFeeder::process(NvxWavEventData& data, uint32_t time, uint64_t sequence, int limit)
{
    WavStreamEvent event(&data, static_cast<int>(time), sequence);
    dispatches = 0;
    while (!event.isConsumed() && dispatches < limit) {
        m_writer.dispatch(&event);
        ++dispatches;
        if (m_writer.isNewFile()) {
            newFiles.append(QString::fromStdWString(m_writer.outputFileName()));
            newFileTimes.append(static_cast<uint32_t>(event.timeStamp()));
        }
    }
    return event.isConsumed();
}

bool WavFeeder::info(uint32_t time, uint64_t startSample)
{
    const auto fill = [&](NvxWavInfoData& record) {
        record.setTimestamp(time);
        record.setStartSample(startSample);
        record.applyFileName(HydUtil::dateTimeFname(prefix.toStdString(), time));
        record.setSoftware("Nerivox' test");
        for (unsigned channel = 0; channel <= channels; ++channel) {
            const auto index = static_cast<unsigned char>(channel);
            record.setDeviceType(DevTypeRecorderA, index);
            record.setSerialNo(static_cast<uint16_t>(42 + channel), index);
            record.setSensitivity(-170, index);
        }
    };
    if (channels == 1) {
        NvxWavInfoDataHF record;
        fill(record);
        return process(record, time, startSample);
    }
    NvxWavInfoDataTMI record(static_cast<unsigned char>(channels));
    fill(record);
    return process(record, time, startSample);
}

bool WavFeeder::setup(uint32_t time, uint64_t startSample)
{
    NvxWavSetupData record;
    record.setBitDepth(bits);
    record.setGain(gain);
    record.setSampleRate(rate);
    return process(record, time, startSample);
}

bool WavFeeder::header(uint32_t time, uint64_t startSample)
{
    return info(time, startSample) && setup(time, startSample);
}

int32_t WavFeeder::rampValue(uint64_t number, unsigned channel) const
{
    const unsigned half = bits / 2U;
    const uint64_t raw = (uint64_t{channel} << half) + number;
    const auto shifted = static_cast<uint32_t>(raw << (32U - bits));
    return static_cast<int32_t>(shifted) >> (32 - bits);
}

bool WavFeeder::block(uint32_t time, uint64_t sequence, unsigned short count)
{
    const unsigned width = bits / 8U;
    m_block.resize(size_t{count} * channels * width);
    unsigned char* out = m_block.data();
    for (unsigned i = 0; i < count; ++i) {
        for (unsigned channel = 0; channel < channels; ++channel) {
            const auto value = static_cast<uint32_t>(rampValue(nextRamp + i, channel));
            for (unsigned k = 0; k < width; ++k)
                *out++ = static_cast<unsigned char>(value >> (8 * (blocksBigEndian ? width - 1 - k : k)));
        }
    }
    nextRamp += count;
    NvxWavDataChunk chunk;
    chunk.setBitDepth(bits);
    chunk.setBigEndian(blocksBigEndian);
    chunk.setNumChannels(static_cast<unsigned char>(channels));
    chunk.setNumSamples(count);
    chunk.setData(m_block.data());
    return process(chunk, time, sequence);
}

bool WavFeeder::second(uint32_t time, uint64_t startSample)
{
    bool consumed = header(time, startSample);
    for (int i = 0; i < 10; ++i)
        consumed = block(time, startSample, static_cast<unsigned short>(rate / 10)) && consumed;
    return consumed;
}

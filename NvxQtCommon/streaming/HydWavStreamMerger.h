#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/job/HydJobSettingsTag.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"

#include <QObject>

#include <cstdint>
#include <memory>

/// The place for lining up the wave streams of several channels in time: it holds the store for five slots of
/// each channel, and takes events without doing anything with them. Made and owned by the application;
/// without a thread of its own.
class NVXQTCOMMON_EXPORT HydWavStreamMerger : public QObject
{
public:
    static constexpr uint8_t kSlots = 5;

    /// A raw byte array; its content is undefined until somebody writes it.
    struct Bytes
    {
        std::unique_ptr<unsigned char[]> data;
        int32_t size = 0;
    };

    /// A raw byte array and the shape of what is to lie in it: `parts` slots or channels, each of whose
    /// elements is `width` bytes wide.
    struct Block : Bytes
    {
        uint8_t parts = 0;
        uint8_t width = 0;
    };

    /// Arrays for n channels, in the order of their allocation.
    struct StoredData
    {
        int64_t position = 0;
        Bytes firstFlags;  ///< n bytes
        Bytes secondFlags; ///< n bytes
        Block firstSlots;  ///< 5 n bytes
        Block samples;     ///< 5 seconds of samples of each channel
        Block firstWide;   ///< 10 n bytes
        Block secondWide;  ///< 10 n bytes
        Block secondSlots; ///< 5 n bytes
        Block thirdSlots;  ///< 5 n bytes
        uint8_t slotCount = kSlots;
    };

    /// Reserves the store. The channels are the entries of the device list in `tags`, modulo 256; none
    /// without such a list. `rate` is in Hz. A store that can't be allocated, or whose samples take more than
    /// 2^31 - 1 bytes, is logged and leaves as std::bad_alloc: the one class of the library that lets an
    /// exception out.
    HydWavStreamMerger(std::map<JobTagKey, std::shared_ptr<HydJobSettingsTag>> tags, unsigned int rate,
                       unsigned char bytesPerSample, QObject* parent);

    /// Does nothing.
    void handleWavEventHdr(std::shared_ptr<HydStreamEventHeaderPayload> header);
    /// Does nothing.
    void handleWavData(std::shared_ptr<HydStreamDataPayload> data);

    const StoredData& store() const { return m_store; }

private:
    void allocate(int64_t channels, int64_t rate, uint8_t bytesPerSample);

    StoredData m_store;
};

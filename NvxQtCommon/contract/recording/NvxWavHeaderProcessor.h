#pragma once

#include "NvxQtCommon/contract/base/CircularByteBuffer.h"
#include "NvxQtCommon/contract/base/FiniteStateMachine.h"
#include "NvxQtCommon/contract/base/StateEvent.h"
#include "NvxQtCommon/contract/recording/NvxWavHeader.h"
#include "NvxQtCommon/contract/recording/RecordingEnums.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

/// Offers bytes of a wave file to NvxWavHeaderProcessor. The buffer stays the caller's.
class NVXQTCOMMON_EXPORT WavReadEvent : public StateEvent
{
public:
    explicit WavReadEvent(CircularByteBuffer* buffer) : m_buffer(buffer) {}
    ~WavReadEvent() override;
    CircularByteBuffer* buffer() const { return m_buffer; }

private:
    CircularByteBuffer* m_buffer;
};

/// Reads what stands ahead of the samples of a wave file, whether RIFF or RIFX and in any order of chunks. It
/// is fed with the file from its first byte on, in pieces of any size, and takes all that a dispatch offers.
/// It ends ahead of the first sample, or at what makes the file none that can be played.
///
/// After a header without an information chunk, the next dispatch may begin with a "LIST" from the tail of
/// the file: the machine then looks for the information chunk from there on, and ends when it has one. Any
/// other beginning is that of another file.
///
/// It keeps at most kMaxListBytes and walks over at most kMaxBytesAhead, whatever the sizes in the file say.
class NVXQTCOMMON_EXPORT NvxWavHeaderProcessor : public FiniteStateMachine
{
public:
    /// A header that is longer, with all its foreign chunks, is refused.
    static constexpr uint32_t kMaxBytesAhead = 16U << 20;
    /// What is looked at of a list; an information record of 255 channels takes less.
    static constexpr uint32_t kMaxListBytes = 64U << 10;
    /// What a channel's number in a record can address.
    static constexpr uint16_t kMaxChannels = 255;

    /// `channelHint` is what the caller believes; the number of channels is the file's own.
    explicit NvxWavHeaderProcessor(int channelHint);

    /// Null until a header was read whole and can be played. Without an information record of this library's
    /// own, its info() is a default record: serial numbers and times 0, every device a wave file.
    std::shared_ptr<NvxWavHeader> header() const { return m_header; }
    /// WavHeaderTruncated until the end state is reached.
    WavHeaderErr errorCode() const { return m_error; }
    bool isBigEndian() const { return m_bigEndian; }
    /// Offset of the first sample; once a list at the tail was read, 8 and listChunkSize() more. 0 without a
    /// header.
    uint32_t headerSize() const { return m_headerSize; }
    /// Size of the information chunk at the tail, without its name and size; 0 without one.
    uint32_t listChunkSize() const { return m_listChunkSize; }
    /// True when all that was offered is used up and more is needed.
    bool outOfData() const { return m_outOfData; }

protected:
    int handleEvent(int state, StateEvent& event) override;

private:
    enum State : int {
        Start = kFirstState, ///< at the first four bytes of a file, or of a list at its tail
        FileHead,
        ChunkHead,
        Format,
        List,
        Skipping,
    };

    int step(int state, CircularByteBuffer& ring);
    bool collect(CircularByteBuffer& ring, size_t wanted);
    int begin();
    int beginChunk();
    int readFormat();
    uint32_t extensibleKind() const;
    int readList();
    int skipRest(uint64_t kept);
    int endAtSamples(uint32_t dataSize);
    void makeHeader(std::shared_ptr<NvxWavInfoData> info, uint32_t dataSize);
    int end(WavHeaderErr error);
    void readRecord(std::span<const uint8_t> list);
    uint16_t u16(size_t offset) const;
    uint32_t u32(std::span<const uint8_t> bytes, size_t offset) const;

    std::shared_ptr<NvxWavHeader> m_header;
    WavHeaderErr m_error = WavHeaderTruncated;
    bool m_bigEndian = false;
    bool m_outOfData = true;
    uint32_t m_headerSize = 0;
    uint32_t m_listChunkSize = 0;

    std::vector<uint8_t> m_kept; ///< of what the state waits for
    uint64_t m_position = 0;     ///< behind what was taken, from the file's or the tail's beginning
    uint32_t m_chunkSize = 0;
    uint64_t m_toSkip = 0;
    bool m_atTail = false;
    bool m_hasInfoChunk = false;
    std::shared_ptr<NvxWavFmtData> m_fmt;
    std::shared_ptr<NvxWavInfoData> m_info;
};

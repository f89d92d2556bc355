#pragma once

#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/replay/NvxWAVFile.h"

#include <QString>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

/// One input file of a merge: its header, and its samples block by block. It holds a block of memory and an
/// open file only between open() and close(). A file that can't be read has no samples. Belongs to the merger
/// and lives on its thread.
class WavMergeInput
{
public:
    /// Samples of a block.
    static constexpr size_t kBlockSamples = 4096;

    /// Reads the header. `name` as the application gave it.
    explicit WavMergeInput(const QString& name);

    QString name() const { return m_file.fileName(); }
    QString absolutePath() const;
    /// Null when the header could not be prepared or is not that of a single recorder over one channel. A
    /// file without a record of its own has the default one, with serial number 0.
    std::shared_ptr<NvxWavInfoDataHF> recorder() const;
    /// Never null where recorder() isn't.
    std::shared_ptr<NvxWavFmtData> format() const;
    /// Whole seconds of samples.
    int64_t seconds() const { return m_file.length(); }

    /// Goes to the first sample; `width` is the bytes of a sample.
    void open(unsigned width);
    void close();
    /// Reads the next block; gives the bytes that the file had for it.
    size_t readBlock();
    /// The block with this many samples, at most kBlockSamples: those that the file didn't have whole are 0.
    const unsigned char* block(size_t samples);
    /// Also when the last read failed or found nothing.
    bool atEnd();

private:
    NvxWAVFile m_file;
    bool m_isPrepared;
    std::vector<unsigned char> m_block;
    unsigned m_width = 1;
    size_t m_bytes = 0; ///< of the block, out of the file
};

#include "NvxQtCommon/merge/WavMergeInput.h"

#include "NvxQtCommon/replay/NvxDataThread.h"

#include <QFileInfo>

#include <algorithm>

WavMergeInput::WavMergeInput(const QString& name) : m_file(name), m_isPrepared(m_file.headerPrepare(false)) {}

QString WavMergeInput::absolutePath() const
{
    return QFileInfo(name()).absoluteFilePath();
}

std::shared_ptr<NvxWavInfoDataHF> WavMergeInput::recorder() const
{
    // A header whose preparation broke off may be there and yet hold values that aren't ready.
    if (!m_isPrepared || format()->numChannels() != 1)
        return nullptr;
    return std::dynamic_pointer_cast<NvxWavInfoDataHF>(m_file.header()->info());
}

std::shared_ptr<NvxWavFmtData> WavMergeInput::format() const
{
    const auto header = m_file.header();
    return header ? header->fmt() : nullptr;
}

void WavMergeInput::open(unsigned width)
{
    m_width = width;
    m_block.resize(kBlockSamples * width);
    if (NvxDataThread::openForReading(m_file.file()))
        m_file.seekToSec(0);
}

void WavMergeInput::close()
{
    m_file.file().close();
    // "{}" would assign an empty list and keep the memory.
    m_block = std::vector<unsigned char>();
}

size_t WavMergeInput::readBlock()
{
    m_bytes = 0;
    if (m_file.file().isOpen()) {
        const qint64 count =
            m_file.file().read(reinterpret_cast<char*>(m_block.data()), static_cast<qint64>(m_block.size()));
        m_bytes = static_cast<size_t>(std::max<qint64>(0, count));
    }
    return m_bytes;
}

const unsigned char* WavMergeInput::block(size_t samples)
{
    const size_t whole = m_bytes / m_width * m_width;
    const size_t wanted = samples * m_width;
    if (whole < wanted)
        std::fill(m_block.begin() + static_cast<ptrdiff_t>(whole),
                  m_block.begin() + static_cast<ptrdiff_t>(wanted), uint8_t{0});
    return m_block.data();
}

bool WavMergeInput::atEnd()
{
    // A read that fails would fail forever.
    return m_bytes == 0 || m_file.file().atEnd();
}

#include "shared/SpectrumFile.h"

#include "NvxQtCommon/contract/recording/RecordText.h"

#include <QFile>
#include <QFileInfo>

bool SpectrumFile::fail(const QString& sentence)
{
    m_error = m_path + QStringLiteral(": ") + sentence;
    return false;
}

bool SpectrumFile::open(const QString& path)
{
    m_path = path;
    if (QFile file(path); QFileInfo(path).isDir() || !file.open(QIODevice::ReadOnly))
        return fail(QFileInfo(path).isDir() ? QStringLiteral("this is a directory.") : file.errorString());
    const long long titles = m_header.deserialise(path.toStdWString());
    if (titles < 0)
        return fail(QStringLiteral("this is no spectrum file."));
    if (m_header.sampleRate() == 0 || m_header.numPts() == 0)
        return fail(QStringLiteral("its header tells no sample rate or no points, as that of spectra does."));
    m_file.open(QFile::encodeName(path).constData(), std::ios::binary);
    m_file.seekg(titles);
    m_bins = 0;
    m_oddLines = 0;
    return m_file.good() || fail(QStringLiteral("it can't be read."));
}

bool SpectrumFile::next()
{
    while (RecordText::readLine(m_file, m_line)) {
        if (m_record.deserialise(m_line, m_header.startDt(), m_header.startDate()) &&
            m_record.numBins() > 0 && (m_bins == 0 || m_record.numBins() == m_bins)) {
            m_bins = m_record.numBins();
            return true;
        }
        m_oddLines += !RecordText::isTitleLine(m_line);
    }
    return false;
}

double SpectrumFile::level(int bin)
{
    return m_record.isDSpectrum() ? m_record.dSpectrum()[bin]
                                  : double(m_record.spectrum()[bin]) + double(m_header.refLeveluPa());
}

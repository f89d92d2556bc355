#pragma once

#include "NvxQtCommon/contract/recording/NvxSpectrumFileData.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileHeader.h"

#include <QString>

#include <fstream>
#include <string>

/// Reads a text file of spectra from its beginning to its end, one spectrum after the other.
class SpectrumFile
{
public:
    /// Reads the header. False when this is no file that holds spectra; error() says why.
    bool open(const QString& path);
    const QString& error() const { return m_error; }
    const NvxSpectrumFileHeader& header() const { return m_header; }

    /// Reads the next spectrum into record(), past the lines that are none or have another number of bins
    /// than the first one. False at the end of the file.
    bool next();
    NvxSpectrumFileData& record() { return m_record; }
    /// Lines passed over so far, the one of the titles not among them.
    int oddLines() const { return m_oddLines; }

    /// Hz from one bin to the next.
    double binWidth() const { return double(m_header.sampleRate()) / m_header.numPts(); }
    /// Level of a bin of record(): in dB re 1 µPa, or where the noise was subtracted in dB above the noise.
    double level(int bin);

private:
    bool fail(const QString& sentence);

    QString m_path;
    QString m_error;
    NvxSpectrumFileHeader m_header;
    NvxSpectrumFileData m_record;
    std::ifstream m_file;
    std::string m_line;
    int m_bins = 0;
    int m_oddLines = 0;
};

#pragma once

#include "NvxQtCommon/contract/recording/NvxSpectrumFileData.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileHeader.h"
#include "NvxQtCommon/replay/NvxDataFile.h"

#include <istream>
#include <memory>

class CSignalPowerSettings;

/// Replays a spectrum file: each record comes as header, total power and spectrum, in the values of the
/// file, one a tick. At ReplayNormal a tick takes half of the time that a record stands for; the first one
/// falls to the column titles. Owner and thread as NvxDataFile tells.
class NVXQTCOMMON_EXPORT NvxFFTFile : public NvxDataFile
{
    Q_OBJECT

public:
    /// `name` is the path of the file.
    NvxFFTFile(const QString& name, QObject* parent);
    ~NvxFFTFile() override;

    /// Takes effect with the next headerPrepare() and processData().
    void setFileName(const QString& name) { m_fileName = name; }
    const QString& fileName() const { return m_fileName; }
    /// Empty before headerPrepare(); never null.
    std::shared_ptr<NvxSpectrumFileHeader> fileHeader() const { return m_header; }
    /// The first record; empty before headerPrepare(); never null.
    std::shared_ptr<NvxSpectrumFileData> fileDate() const { return m_fileDate; }
    using NvxDataFile::devId;
    /// The id under which the signals come: DevTypeSpecFile and the serial number of the file's device.
    std::shared_ptr<HydDeviceId> devId() const;
    /// Reads the header and the first record. With `freshLog` the epoch log begins anew; without it its
    /// lines are carried on. False, without a message, for what is no regular file, can't be read, isn't of
    /// the family, has no line of titles or no spectrum within four lines behind it.
    bool headerPrepare(bool freshLog);
    /// Starts the replay from the beginning, in place of one that is under way; that one reports nothing
    /// more. Always true: a file that can't be opened ends at once.
    bool processData();
    /// Which bins count towards total power in the replay under way; nothing without one.
    void setSignalPowerSet(const CSignalPowerSettings& settings);

private:
    void computeBaseTime();
    bool readFirstRecord(std::istream& in);

    std::shared_ptr<NvxSpectrumFileHeader> m_header;
    std::shared_ptr<NvxSpectrumFileData> m_fileDate;
    QString m_fileName;
    qint64 m_dataPos = 0; ///< place of the column titles in the file
};

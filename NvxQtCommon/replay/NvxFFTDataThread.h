#pragma once

#include "NvxQtCommon/contract/recording/NvxSpectrumFileData.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileHeader.h"
#include "NvxQtCommon/replay/NvxDataThread.h"
#include "NvxQtCommon/streaming/PowerTable.h"

#include <cstdint>
#include <fstream>
#include <memory>
#include <span>
#include <string>

class CSignalPowerSettings;

/// Reads a spectrum file, a line a tick, and makes of each record what a live stream sends: header, total
/// power, spectrum. Made by NvxFFTFile; owner and thread as NvxDataThread tells. It holds one line, at most
/// 2 MiB, and one record, at most 65535 bins.
class NVXQTCOMMON_EXPORT NvxFFTDataThread : public NvxDataThread
{
    Q_OBJECT

public:
    /// `dataPos` is the place of the column titles in the file `name`, bytes.
    NvxFFTDataThread(const QString& name, qint64 dataPos, QObject* parent);
    ~NvxFFTDataThread() override;

    void setFileHeader(std::shared_ptr<NvxSpectrumFileHeader> header) { m_header = std::move(header); }
    std::shared_ptr<NvxSpectrumFileHeader> fileHeader() const { return m_header; }
    /// The record read last; never null.
    std::shared_ptr<NvxSpectrumFileData> fileDate() const { return m_record; }
    /// Which bins count towards total power; all of them until it is called.
    void setSignalPowerSet(const CSignalPowerSettings& settings);
    /// Emits streamHeaderReady, signalTotalPower and streamDataReady of the newest record; nothing without a
    /// file header.
    void formSignalReady();

public Q_SLOTS:
    /// One tick. A line that is no record costs its tick; at the end of the file, or where a line can't be
    /// read, the thread ends.
    void readRecord();

protected:
    void run() override;

private:
    void readLine();
    std::shared_ptr<HydEventKeyChunk const> makeKey() const;
    std::shared_ptr<HydStreamEventHeaderPayload> makeHeader() const;
    std::shared_ptr<HydDevice> makeDevice() const;

    std::shared_ptr<NvxSpectrumFileHeader> m_header;
    std::shared_ptr<NvxSpectrumFileData> m_record;
    std::ifstream m_file; ///< opened by run(), read by the ticks
    int32_t m_minBin = 0;
    int32_t m_maxBin = 0;
    qint64 m_dataPos;
    std::string m_line;
    PowerTable m_powerTable;
};

#pragma once

#include "NvxQtCommon/contract/recording/NvxSpecWriter.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileData.h"
#include "NvxQtCommon/contract/recording/SpecStreamEvent.h"
#include "SpectrumStream.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QTemporaryDir>

#include <csignal>
#include <memory>
#include <string>
#include <sys/resource.h>

/// A spectrum writer of three records a file in a directory of its own, and what feeds it.
class SpecWriterCase : public NvxTestCase
{
    Q_OBJECT

protected:
    static constexpr uint32_t kTime = 1709210096; // 2024-02-29 12:34:56 UTC

private Q_SLOTS:
    void initTestCase() { QVERIFY(std::signal(SIGXFSZ, SIG_IGN) != SIG_ERR); }
    void init()
    {
        NvxTestCase::failOnUnexpectedWarnings();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_writer = std::make_unique<NvxSpecWriter>(3, m_dir->path().toStdWString());
        m_stream = SpectrumStream();
        m_newFiles.clear();
    }
    void cleanup()
    {
        m_writer.reset();
        m_dir.reset();
    }

protected:
    QString path(const QString& name) const { return m_dir->filePath(name); }
    QStringList files() const { return QDir(m_dir->path()).entryList(QDir::Files, QDir::Name); }

    void process(NvxSpectrumEventData& data)
    {
        SpecStreamEvent event(&data);
        for (int i = 0; i < 10 && !event.isConsumed(); ++i) {
            m_writer->dispatch(&event);
            if (m_writer->isNewFile())
                m_newFiles.append(QString::fromStdWString(m_writer->outputFileName()));
        }
        QVERIFY(event.isConsumed());
    }
    void header(uint32_t time, const std::wstring& name, int64_t sequence = 0, FFTMode mode = FftModeSpectrum)
    {
        const auto header =
            NvxSpectrumFileHeader::fromEventHdr(*m_stream.header(time, sequence), nullptr, mode);
        header->setFname(name);
        process(*header);
    }
    void spectrum(uint32_t time, unsigned long long sequence = 0)
    {
        const auto record = NvxSpectrumFileData::fromStreamData(*m_stream.spectrum(time, 0, 0, {1, 2, 3, 4}));
        record->setSeqNum(sequence);
        process(*record);
    }
    /// Runs `action` while no file may grow beyond `size` bytes.
    template <class Action> static bool underLimit(rlim_t size, Action action)
    {
        rlimit limits{};
        if (getrlimit(RLIMIT_FSIZE, &limits) != 0)
            return false;
        const rlimit full{size, limits.rlim_max};
        if (setrlimit(RLIMIT_FSIZE, &full) != 0)
            return false;
        action();
        return setrlimit(RLIMIT_FSIZE, &limits) == 0;
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<NvxSpecWriter> m_writer;
    SpectrumStream m_stream;
    QStringList m_newFiles;
};

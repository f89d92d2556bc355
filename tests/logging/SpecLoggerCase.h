#pragma once

#include "SpectrumStream.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <memory>

/// A logger of the spectrum family, three records a file, in a directory of its own; no line of the log may
/// say that writing failed.
template <class Logger> class SpecLoggerCase : public NvxTestCase
{
protected:
    static constexpr uint32_t kTime = 1709210096; // 2024-02-29 12:34:56 UTC

    void makeLogger(const QString& prefix)
    {
        failOnUnexpectedWarnings();
        m_logger.reset();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_logger = std::make_unique<Logger>(3, m_dir->path(), prefix, nullptr);
        m_newFiles = std::make_unique<QSignalSpy>(m_logger.get(), &Logger::newFileCreated);
        m_progress = std::make_unique<QSignalSpy>(m_logger.get(), &Logger::logProgress);
        m_stream = SpectrumStream();
    }
    void dropLogger()
    {
        m_newFiles.reset();
        m_progress.reset();
        m_logger.reset();
        m_dir.reset();
    }
    QString path(const QString& name) const { return m_dir->filePath(name); }
    QStringList files() const { return QDir(m_dir->path()).entryList(QDir::Files, QDir::Name); }
    QString newFile(int index) const { return m_newFiles->value(index).value(0).toString(); }
    uint32_t progress() const { return m_progress->value(m_progress->size() - 1).value(0).toUInt(); }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Logger> m_logger;
    std::unique_ptr<QSignalSpy> m_newFiles;
    std::unique_ptr<QSignalSpy> m_progress;
    SpectrumStream m_stream;
};

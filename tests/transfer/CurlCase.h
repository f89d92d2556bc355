#pragma once

#include "NvxQtCommon/transfer/CFtpProc.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"
#include "tests/transfer/CurlSpy.h"

#include <QBuffer>
#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <memory>

/// The four kinds of operation, each on remote path "Data/x".
enum class Operation { UpLoad, DownLoad, Exists, List };

inline QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("none");
}

inline bool makeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

/// Hands bytes to the write callback that was set; its result is that of libcurl's.
inline CURLcode deliver(const CurlSpy::Options& options, QByteArray bytes)
{
    const auto write = reinterpret_cast<curl_write_callback>(options.at(CURLOPT_WRITEFUNCTION).pointer);
    const auto size = static_cast<size_t>(bytes.size());
    return write(bytes.data(), 1, size, options.at(CURLOPT_WRITEDATA).pointer) == size ? CURLE_OK
                                                                                       : CURLE_WRITE_ERROR;
}

Q_DECLARE_METATYPE(Operation)

/// Operations of a CFtpProc with a local file of "12345".
class CurlCase : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_dir = std::make_unique<QTemporaryDir>();
        m_local = m_dir->filePath(QStringLiteral("local"));
        QVERIFY(makeFile(m_local, "12345"));
    }

protected:
    bool run(CFtpProc& proc, Operation operation, const std::string& remote = "Data/x")
    {
        std::string listing;
        switch (operation) {
        case Operation::UpLoad:
            return proc.upLoad(m_local.toStdString(), remote);
        case Operation::DownLoad:
            return proc.downLoad(remote, m_local.toStdString());
        case Operation::Exists:
            return proc.fileExists(remote);
        case Operation::List:
            return proc.getList(remote, listing);
        }
        return false;
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_local;
};

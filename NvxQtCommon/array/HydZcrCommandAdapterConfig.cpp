#include "NvxQtCommon/array/DeleteWhenSilent.h"
#include "NvxQtCommon/array/HydZcrCommandAdapter.h"
#include "NvxQtCommon/transfer/CFtpProc.h"
#include "NvxQtCommon/transfer/QFtp.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

#include <algorithm>
#include <string_view>

namespace {

constexpr quint16 kConfigPort = 21;
const QLatin1String kConfigPath("/Config/JOBSETUP.CFG");
/// The same file, from the folder that a login leads to.
const QLatin1String kConfigName("Config/JOBSETUP.CFG");

/// Where the copy of the file of one array controller lies.
QString localConfigCopy(QString address)
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + u'/' +
           address.replace(u'.', u'_') + QLatin1String("___JOBSETUP.CFG");
}

QList<QString> configTransfer(const QString& from, const QString& to)
{
    return {from + QLatin1String(CFtpProc::kListSeparator) + to};
}

std::string_view viewOf(const QByteArray& bytes)
{
    return {bytes.constData(), static_cast<size_t>(bytes.size())};
}

} // namespace

void HydZcrCommandAdapter::makeFtp()
{
    m_ftp = {new QFtp, deleteWhenSilent};
    m_ftp->setParent(this);
    m_ftp->setInactivityLimit(kFtpSilenceMs);
    connect(m_ftp.get(), &QFtp::commandFinished, this, &HydZcrCommandAdapter::ftpCommandFinished);
    connect(m_ftp.get(), &QFtp::readyRead, this, &HydZcrCommandAdapter::ftpReadConfig);
    connect(m_ftp.get(), &QFtp::dataTransferProgress, this, [this](qlonglong done) {
        if (done <= kMaxConfigSize)
            return;
        qDebug() << "Configuration file of an array controller given up: more than" << kMaxConfigSize
                 << "bytes";
        m_ftp->abort();
    });
}

// --- reading

void HydZcrCommandAdapter::getFtpZcrFileConfig()
{
    m_ftp->connectToHost(QString::fromStdString(m_hostInfo.ipAddress().toString()), kConfigPort);
    m_ftp->login();
    m_ftp->get(kConfigPath, nullptr, QFtp::Binary);
    m_ftp->close();
}

void HydZcrCommandAdapter::ftpCommandFinished(int /*id*/, bool /*error*/) {}

void HydZcrCommandAdapter::ftpReadConfig()
{
    // A file that comes in pieces is read piece by piece, and only the last one counts. This is intended.
    clearLists();
    const QByteArray file = m_ftp->readAll();
    qDebug() << file.left(kMaxConfigLogged);
    for (const uint16_t serial : zcrConfigSerials(viewOf(file), m_keyMap)) {
        m_devIdList.emplace_back(DevTypeSkiff, serial);
        m_devIdList.back().setHostDevNo(m_serial);
    }
    fillSkiffList();
    readZcrConfig(viewOf(file), m_jobSettings, m_keyMap);
    updateDevSetConfigRead(EnquireFile);
}

// --- writing

void HydZcrCommandAdapter::ftpWriteConfig(const JobTagMap& tags)
{
    m_jobSettings.setMap(tags);
    if (!m_ftpProc) {
        m_ftpProc = std::make_shared<CFtpProc>();
        m_ftpProc->setDownLoadLimit(kMaxConfigSize);
        connect(m_ftpProc.get(), &CFtpProc::signalError, m_ftpProc.get(),
                [](const QString& error) { qDebug().noquote() << error.trimmed(); });
    }
    const QString address = QString::fromStdString(m_hostInfo.ipAddress().toString());
    m_ftpProc->setIpAddr(address);
    const QString copy = localConfigCopy(address);
    QDir().mkpath(QFileInfo(copy).path());
    QFile::remove(copy);
    m_ftpProc->setDownLoadList(configTransfer(kConfigName, copy));
    if (!m_ftpProc->downLoad() || !handleLoadingZCRConfFinished(true, copy))
        return;
    m_ftpProc->setDownLoadList(configTransfer(copy, kConfigName));
    const bool isSent = m_ftpProc->upLoad();
    // It names the download. This is intended.
    qDebug().nospace() << "m_ftpProc->downLoad() success: " << isSent;
    if (isSent)
        Q_EMIT signalResetZCR(HydDeviceId(DevTypeZcr, m_serial, m_hostInfo));
}

bool HydZcrCommandAdapter::handleLoadingZCRConfFinished(bool ok, QString const& path)
{
    if (!ok) {
        qDebug().noquote().nospace() << "Error of the file ZCR CONFIG loading: " << path;
        return false;
    }
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly) || file.size() > kMaxConfigSize)
        return false;
    const QByteArray text = file.read(kMaxConfigSize);
    file.close();
    std::vector<uint16_t> serials(m_devIdList.size());
    std::ranges::transform(m_devIdList, serials.begin(), &HydDeviceId::serialNo);
    const std::string edited = editedZcrConfig(viewOf(text), m_jobSettings, serials, m_keyMap);
    QSaveFile target(path);
    return target.open(QIODevice::WriteOnly) &&
           target.write(edited.data(), static_cast<qint64>(edited.size())) ==
               static_cast<qint64>(edited.size()) &&
           target.commit();
}

#include "dialog-demo/DialogPictures.h"

#include "dialog-demo/ScanWatch.h"
#include "dialog-demo/SimulatedLines.h"

#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QPixmap>

namespace {

/// One dialog from its opening to the end of its scan; collects complaints.
class Sitting
{
public:
    explicit Sitting(const QString& folder) : m_folder(folder) { m_dialog.show(); }

    void save(const QString& name)
    {
        QCoreApplication::processEvents();
        const QString path = m_folder.filePath(name);
        if (m_complaint.isEmpty() && !m_dialog.grab().save(path))
            m_complaint = QStringLiteral("%1 can't be written.").arg(path);
    }
    void startScan() { m_dialog.startScan(); }
    void awaitScanEnd()
    {
        QEventLoop loop;
        const ScanWatch watch(m_dialog);
        QObject::connect(&watch, &ScanWatch::scanEnded, &loop, &QEventLoop::quit);
        loop.exec();
    }
    const QString& complaint() const { return m_complaint; }

private:
    QDir m_folder;
    NvxSerialConnDialog m_dialog;
    QString m_complaint;
};

} // namespace

QString saveDialogPictures(const QString& folder, SimulatedLines& lines)
{
    // A cursor that blinks would come into some of them.
    QApplication::setCursorFlashTime(0);
    Sitting noneFound(folder);
    noneFound.save(QStringLiteral("dialog-empty.png"));
    if (!noneFound.complaint().isEmpty())
        return noneFound.complaint();
    noneFound.startScan();
    noneFound.save(QStringLiteral("dialog-scanning.png"));
    noneFound.awaitScanEnd();
    noneFound.save(QStringLiteral("dialog-none-found.png"));

    if (!lines.addRecorders())
        return QStringLiteral("there are no more pseudo terminals here.");
    Sitting found(folder);
    found.startScan();
    found.awaitScanEnd();
    found.save(QStringLiteral("dialog-found.png"));
    return noneFound.complaint().isEmpty() ? found.complaint() : noneFound.complaint();
}

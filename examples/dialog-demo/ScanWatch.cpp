#include "dialog-demo/ScanWatch.h"

#include <QLabel>

ScanWatch::ScanWatch(const NvxSerialConnDialog& dialog)
{
    const auto* message = dialog.findChild<QLabel*>(QStringLiteral("lblMessage"));
    connect(&m_timer, &QTimer::timeout, this, [this, message] {
        if (message->text() == QStringLiteral("Scanning ports..."))
            return;
        m_timer.stop();
        Q_EMIT scanEnded();
    });
    m_timer.start(20);
}

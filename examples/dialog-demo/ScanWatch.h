#pragma once

#include <QObject>
#include <QTimer>

#include <NvxQtCommon/discovery/NvxSerialConnDialog.h>

/// Tells when a scan of the dialog is over. The dialog says so to its user alone, in its message.
class ScanWatch : public QObject
{
    Q_OBJECT

public:
    /// Begins to watch; the dialog has to outlive it.
    explicit ScanWatch(const NvxSerialConnDialog& dialog);

Q_SIGNALS:
    /// Once.
    void scanEnded();

private:
    QTimer m_timer;
};

#pragma once

#include <QObject>
#include <QTimer>

/// Tells of Ctrl-C and of the request to end, so that a program can complete its files. One for a program.
class InterruptWatch : public QObject
{
    Q_OBJECT

public:
    explicit InterruptWatch(QObject* parent = nullptr);

Q_SIGNALS:
    /// Comes again and again from the first interruption on.
    void interrupted();

private:
    QTimer m_timer;
};

#pragma once

#include "NvxQtSimulator/PseudoTerminal.h"
#include "NvxQtSimulator/RecorderState.h"

#include <QPointer>

/// The serial line of one recorder: a pseudo terminal that carries the same commands as the control device,
/// at one baud rate. The faults of the control device strike here too; one that ends a connection pulls the
/// cable.
class SerialService : public QObject
{
    Q_OBJECT

public:
    SerialService(RecorderState* state, QObject* parent);

    bool open(QString* error);
    /// Path to open as a serial port; empty once the cable is pulled.
    QString portName() const { return m_line ? m_line->portName() : QString(); }

private:
    RecorderState* m_state;
    QPointer<PseudoTerminal> m_line;
};

#include "NvxQtSimulator/SerialService.h"

#include "NvxQtSimulator/ControlService.h"

#include <memory>

SerialService::SerialService(RecorderState* state, QObject* parent) : QObject(parent), m_state(state) {}

bool SerialService::open(QString* error)
{
    auto line = std::make_unique<PseudoTerminal>(m_state->settings().serialRate);
    if (!line->open(QIODevice::ReadWrite)) {
        *error = QStringLiteral("Serial line: ") + line->errorString();
        return false;
    }
    m_line = line.release();
    new ControlSession(m_line, m_state, this);
    return true;
}

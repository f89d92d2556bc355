#include "NvxQtSimulator/PseudoTerminal.h"

#include <QtGlobal>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>
#endif

PseudoTerminal::PseudoTerminal(uint32_t baudRate, QObject* parent) : QIODevice(parent), m_baudRate(baudRate)
{
}

PseudoTerminal::~PseudoTerminal()
{
    PseudoTerminal::close();
}

qint64 PseudoTerminal::readData(char* data, qint64 maxSize)
{
    const qint64 size = std::min<qint64>(maxSize, m_unread.size());
    std::memcpy(data, m_unread.constData(), static_cast<size_t>(size));
    m_unread.remove(0, size);
    if (m_readable)
        m_readable->setEnabled(m_unread.size() < kMaxUnread);
    return size;
}

qint64 PseudoTerminal::writeData(const char* data, qint64 size)
{
    m_unsent.append(data, size);
    sendWaiting();
    return size;
}

#ifdef Q_OS_UNIX

namespace {

constexpr std::array<std::pair<speed_t, uint32_t>, 13> kSpeeds{{
    {B1200, 1200},
    {B2400, 2400},
    {B4800, 4800},
    {B9600, 9600},
    {B19200, 19200},
    {B38400, 38400},
    {B57600, 57600},
    {B115200, 115200},
    {B230400, 230400},
#ifdef B921600
    {B460800, 460800},
    {B921600, 921600},
    {B1000000, 1000000},
    {B2000000, 2000000},
#endif
}};

/// The other end, without echo and line editing. It opens with the rights of this process alone.
int openPortEnd(int ownEnd, QString* name)
{
    if (grantpt(ownEnd) != 0 || unlockpt(ownEnd) != 0)
        return -1;
    const char* path = ptsname(ownEnd);
    const int end = path == nullptr ? -1 : ::open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios raw{};
    if (end < 0 || tcgetattr(end, &raw) != 0)
        return end;
    cfmakeraw(&raw);
    tcsetattr(end, TCSANOW, &raw);
    *name = QString::fromLocal8Bit(path);
    return end;
}

} // namespace

bool PseudoTerminal::open(OpenMode mode)
{
    const bool isKnownRate = std::any_of(kSpeeds.begin(), kSpeeds.end(),
                                         [this](const auto& pair) { return pair.second == m_baudRate; });
    if (!isKnownRate || m_baudRate == 0) {
        setErrorString(QStringLiteral("%1 bit/s is no rate of a serial line.").arg(m_baudRate));
        return false;
    }
    m_ownEnd = posix_openpt(O_RDWR | O_NOCTTY);
    if (m_ownEnd >= 0)
        m_portEnd = openPortEnd(m_ownEnd, &m_name);
    if (m_name.isEmpty()) {
        setErrorString(qt_error_string());
        PseudoTerminal::close();
        return false;
    }
    fcntl(m_ownEnd, F_SETFL, O_NONBLOCK);
    fcntl(m_ownEnd, F_SETFD, FD_CLOEXEC);
    m_readable = std::make_unique<QSocketNotifier>(m_ownEnd, QSocketNotifier::Read);
    m_writable = std::make_unique<QSocketNotifier>(m_ownEnd, QSocketNotifier::Write);
    m_writable->setEnabled(false);
    connect(m_readable.get(), &QSocketNotifier::activated, this, &PseudoTerminal::receive);
    connect(m_writable.get(), &QSocketNotifier::activated, this, &PseudoTerminal::sendWaiting);
    // Without a buffer of QIODevice's own: this one is bounded.
    return QIODevice::open(mode | QIODevice::Unbuffered);
}

void PseudoTerminal::close()
{
    if (isOpen())
        QIODevice::close();
    // Through the event loop: it may be one of theirs that closes the line.
    for (auto* notifier : {&m_readable, &m_writable}) {
        if (*notifier) {
            (*notifier)->setEnabled(false);
            notifier->release()->deleteLater();
        }
    }
    for (int* end : {&m_portEnd, &m_ownEnd}) {
        if (*end >= 0)
            ::close(*end);
        *end = -1;
    }
    m_name.clear();
    m_unread.clear();
    m_unsent.clear();
}

uint32_t PseudoTerminal::portBaudRate() const
{
    termios settings{};
    if (m_portEnd < 0 || tcgetattr(m_portEnd, &settings) != 0)
        return 0;
    const speed_t speed = cfgetospeed(&settings);
    const auto* known = std::find_if(kSpeeds.begin(), kSpeeds.end(),
                                     [speed](const auto& pair) { return pair.first == speed; });
    return known == kSpeeds.end() ? 0 : known->second;
}

void PseudoTerminal::receive()
{
    std::array<char, 4096> piece;
    const ssize_t size = ::read(m_ownEnd, piece.data(), piece.size());
    // At another rate a recorder sees noise.
    if (size <= 0 || portBaudRate() != m_baudRate)
        return;
    m_unread.append(piece.data(), size);
    m_readable->setEnabled(m_unread.size() < kMaxUnread);
    Q_EMIT readyRead();
}

void PseudoTerminal::sendWaiting()
{
    const ssize_t size = ::write(m_ownEnd, m_unsent.constData(), static_cast<size_t>(m_unsent.size()));
    if (size < 0 && errno != EAGAIN && errno != EINTR)
        m_unsent.clear();
    if (size > 0)
        m_unsent.remove(0, size);
    m_writable->setEnabled(!m_unsent.isEmpty());
    if (size > 0)
        Q_EMIT bytesWritten(size);
}

#else

bool PseudoTerminal::open(OpenMode)
{
    setErrorString(QStringLiteral("This system has no pseudo terminals."));
    return false;
}

void PseudoTerminal::close()
{
    QIODevice::close();
}

uint32_t PseudoTerminal::portBaudRate() const
{
    return 0;
}

void PseudoTerminal::receive() {}

void PseudoTerminal::sendWaiting() {}

#endif

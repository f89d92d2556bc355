#include "NvxQtCommon/replay/NvxDataThread.h"

#include <QFileInfo>
#include <QPointer>

#include <limits>

namespace {

/// What a timer takes of a period.
int intervalOf(qint64 ms)
{
    const auto low = static_cast<qint32>(static_cast<quint32>(ms));
    return low < 0 ? std::numeric_limits<int>::max() : low;
}

} // namespace

bool NvxDataThread::openForReading(QFile& file)
{
    file.close();
    return QFileInfo(file.fileName()).isFile() && file.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

NvxDataThread::NvxDataThread(const QString& fileName, QObject* parent)
    : QThread(parent), m_timer(new QTimer(this)), m_fileName(fileName)
{
    m_timer->setTimerType(Qt::PreciseTimer);
    connect(this, &NvxDataThread::startMTimer, this, &NvxDataThread::slotStartTimer);
}

NvxDataThread::~NvxDataThread()
{
    m_timer->stop();
    if (!isFinished())
        quit();
}

void NvxDataThread::setTimerTime(qint64 ms)
{
    if (ms == m_timerTime || ms == m_timer->interval())
        return;
    m_timerTime = ms;
    m_timer->setInterval(intervalOf(ms));
}

void NvxDataThread::pause()
{
    m_timer->stop();
}

void NvxDataThread::resume()
{
    if (!m_timer->isActive())
        m_timer->start(intervalOf(m_timerTime));
}

void NvxDataThread::slotStartTimer()
{
    resume();
}

void NvxDataThread::exitThread()
{
    m_timer->stop();
    exit(0);
}

void NvxDataThread::retire()
{
    m_isRetired = true;
    m_timer->stop();
    // A start of the timer may be on its way; then it ticks for nobody.
    m_timer->disconnect();
    setParent(nullptr);
    connect(this, &QThread::finished, this, &QObject::deleteLater);
    if (isRunning())
        quit();
    else
        deleteLater();
}

void NvxDataThread::runTick(const std::function<void()>& read)
{
    // The timer goes on for a moment after the end was reported, behind which no data may come.
    if (!m_hasBegun || m_isInTick || isFinished())
        return;
    const QPointer<NvxDataThread> self(this);
    m_isInTick = true;
    read();
    if (self)
        m_isInTick = false;
}

void NvxDataThread::beginTicks()
{
    m_hasBegun = true;
    Q_EMIT startMTimer();
}

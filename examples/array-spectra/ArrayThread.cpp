#include "array-spectra/ArrayThread.h"

ArrayThread::~ArrayThread()
{
    m_thread.quit();
    m_thread.wait();
}

QString ArrayThread::start(const ArraySettings& settings)
{
    auto* array = new SimulatedArray(settings);
    array->moveToThread(&m_thread);
    QObject::connect(&m_thread, &QThread::finished, array, &QObject::deleteLater);
    m_thread.start();
    QString objection;
    QMetaObject::invokeMethod(
        array,
        [array, &objection] {
            if (!array->start())
                objection = array->errorString();
        },
        Qt::BlockingQueuedConnection);
    return objection;
}

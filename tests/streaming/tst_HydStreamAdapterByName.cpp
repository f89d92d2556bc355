// Queued connections by name to a HydStreamAdapter, in a process where nothing else makes its types known.
#include "tests/streaming/StreamFrames.h"
#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/streaming/HydStreamAdapter.h"

using namespace streamframes;

/// Takes what comes by its name, as applications with older connections do.
class NamedReceiver : public QObject
{
    Q_OBJECT

public:
    QStringList m_taken;

public Q_SLOTS:
    void takeHeader(std::shared_ptr<HydStreamEventHeaderPayload> payload, HydDeviceId devId,
                    std::shared_ptr<HydDevice> dev)
    {
        if (payload && dev)
            m_taken << QStringLiteral("header %1").arg(devId.serialNo());
    }
    void takeData(std::shared_ptr<HydStreamDataPayload> payload, HydDeviceId devId)
    {
        if (payload)
            m_taken << QStringLiteral("data %1").arg(devId.serialNo());
    }
    void takeStatus(std::shared_ptr<HydStatusDataPayload> payload, HydDeviceId devId)
    {
        if (payload)
            m_taken << QStringLiteral("status %1").arg(devId.serialNo());
    }
    void takeNotify(std::shared_ptr<HydStreamNotifyPayload> payload, HydDeviceId devId)
    {
        if (payload)
            m_taken << QStringLiteral("notify %1").arg(devId.serialNo());
    }
};

class TestHydStreamAdapterByName : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows

    void payloadsArriveByName()
    {
        HydStreamAdapter adapter(StreamWave, 1, HydDeviceId(DevTypeRecorderA, 1234), 1000, false);
        NamedReceiver receiver;
        using Payload = std::shared_ptr<HydStreamMessagePayload>;
        QVERIFY(connect(&adapter,
                        SIGNAL(eventHeader(std::shared_ptr<HydStreamEventHeaderPayload>, HydDeviceId,
                                           std::shared_ptr<HydDevice>)),
                        &receiver,
                        SLOT(takeHeader(std::shared_ptr<HydStreamEventHeaderPayload>, HydDeviceId,
                                        std::shared_ptr<HydDevice>)),
                        Qt::QueuedConnection));
        QVERIFY(connect(&adapter, SIGNAL(streamDataReady(std::shared_ptr<HydStreamDataPayload>, HydDeviceId)),
                        &receiver, SLOT(takeData(std::shared_ptr<HydStreamDataPayload>, HydDeviceId)),
                        Qt::QueuedConnection));
        QVERIFY(connect(
            &adapter, SIGNAL(streamStatusData(std::shared_ptr<HydStatusDataPayload>, HydDeviceId)), &receiver,
            SLOT(takeStatus(std::shared_ptr<HydStatusDataPayload>, HydDeviceId)), Qt::QueuedConnection));
        QVERIFY(connect(&adapter, SIGNAL(streamNotify(std::shared_ptr<HydStreamNotifyPayload>, HydDeviceId)),
                        &receiver, SLOT(takeNotify(std::shared_ptr<HydStreamNotifyPayload>, HydDeviceId)),
                        Qt::QueuedConnection));
        for (const Payload& payload :
             {Payload(header(1, 0)), Payload(block(1, 0, 0, 8)), Payload(status(217)),
              Payload(std::make_shared<HydStreamNotifyPayload>(uint16_t{2}))})
            adapter.handleStreamMessagePayload(payload);
        QVERIFY(receiver.m_taken.isEmpty());
        QTRY_COMPARE(receiver.m_taken,
                     (QStringList{QStringLiteral("header 1234"), QStringLiteral("data 1234"),
                                  QStringLiteral("status 1234"), QStringLiteral("notify 1234")}));
    }
};

QTEST_GUILESS_MAIN(TestHydStreamAdapterByName)
#include "tst_HydStreamAdapterByName.moc"

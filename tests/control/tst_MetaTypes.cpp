#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/control/NvxDeviceController.h"

#include <QThread>

#include <atomic>

/// Lives on another thread and keeps what arrives there.
class FarReceiver : public QObject
{
    Q_OBJECT

public:
    std::atomic<bool> m_isTaken{false};
    // Readable once m_isTaken is set.
    HydDeviceId m_id;
    HydChannel m_channel = HydChannel(9);

public Q_SLOTS:
    void take(HydDeviceId id, HydChannel channel)
    {
        m_id = id;
        m_channel = channel;
        m_isTaken = true;
    }
};

/// The types that travel through signals are known to Qt by name.
class tst_MetaTypes : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void knownByName_data();
    void knownByName();
    void connectionByNameCrossesAThread();
};

void tst_MetaTypes::knownByName_data()
{
    QTest::addColumn<QByteArray>("name");
    for (const char* name : {"NvxDevice",
                             "HydDevice",
                             "HydDeviceId",
                             "HydDeviceType",
                             "HydConnectionType",
                             "HydChannel",
                             "HydPort",
                             "HydPortConnStatus",
                             "HydNetworkStatus",
                             "HydControlError",
                             "NvxPingResult",
                             "HydConfigStat",
                             "HydBattStatus",
                             "HydStreamType",
                             "NvxIpAddr",
                             "NvxMacAddr",
                             "NvxNetHostInfo",
                             "HydJobSettings",
                             "NvxWavTestInfoData",
                             "SActiveTrigger",
                             "std::string",
                             "std::vector<HydDeviceId>",
                             "std::shared_ptr<NvxDevice>",
                             "std::shared_ptr<HydDevice>",
                             "std::shared_ptr<ZcrDevice>",
                             "std::shared_ptr<HydJobSetupErr>",
                             "std::shared_ptr<HydTrigger>",
                             "std::shared_ptr<HydControlMsgPayload>",
                             "std::shared_ptr<const HydControlMsgPayload>",
                             "std::shared_ptr<const HydEnquireCmd>",
                             "std::shared_ptr<const HydEnquireTimeSync>",
                             "std::shared_ptr<const HydDataCollectCmd>",
                             "std::shared_ptr<HydMarcoCommandPayload>",
                             "std::shared_ptr<HydStreamMessagePayload>",
                             "std::shared_ptr<HydStreamEventHeaderPayload>",
                             "std::shared_ptr<HydStreamDataPayload>",
                             "std::shared_ptr<HydStreamNotifyPayload>",
                             "std::shared_ptr<HydStatusDataPayload>"})
        QTest::newRow(name) << QByteArray(name);
}

void tst_MetaTypes::knownByName()
{
    QFETCH(QByteArray, name);
    registerNvxMetaTypes();
    const auto type = QMetaType::fromName(name);
    QVERIFY(type.isValid());
    QVERIFY(type.sizeOf() > 0);
    // A queued connection copies.
    void* original = type.create();
    QVERIFY(original != nullptr);
    void* copy = type.create(original);
    QVERIFY(copy != nullptr);
    type.destroy(copy);
    type.destroy(original);
}

void tst_MetaTypes::connectionByNameCrossesAThread()
{
    FarReceiver receiver;
    QThread thread;
    receiver.moveToThread(&thread);
    thread.start();
    NvxDeviceController controller(
        std::make_shared<HydDevice>(uint16_t(77), DevTypeRecorderB, NvxNetHostInfo(), JobTagMap()), ConnTcp);
    QVERIFY(connect(&controller, SIGNAL(channelOpen(HydDeviceId, HydChannel)), &receiver,
                    SLOT(take(HydDeviceId, HydChannel))));
    controller.handleAdapterConnection();
    QTRY_VERIFY(receiver.m_isTaken);
    thread.quit();
    thread.wait();
    QCOMPARE(receiver.m_id, HydDeviceId(DevTypeRecorderB, 77));
    QCOMPARE(receiver.m_channel, ChanCommand);
}

QTEST_GUILESS_MAIN(tst_MetaTypes)
#include "tst_MetaTypes.moc"

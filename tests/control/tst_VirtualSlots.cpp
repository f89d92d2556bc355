#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/contract/recording/NvxWavInfoData.h"
#include "NvxQtCommon/control/HydDeviceController.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

/// Place of a virtual function in its class's table, by how this compiler's ABI writes a pointer to it.
template <class Member> std::ptrdiff_t slotOf(Member member)
{
    std::ptrdiff_t place = 0;
    static_assert(sizeof(member) >= sizeof(place));
    std::memcpy(&place, &member, sizeof(place));
    return place;
}

template <class... Members> std::vector<std::ptrdiff_t> slotsOf(Members... members)
{
    return {slotOf(members)...};
}

bool isAscending(const std::vector<std::ptrdiff_t>& places)
{
    // Functions that aren't virtual have addresses, far behind any table's end.
    return std::ranges::adjacent_find(places, std::greater_equal<>()) == places.end() && places.back() < 4096;
}

} // namespace

/// The order of virtual functions that the interface fixes; others may stand between them.
class tst_VirtualSlots : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void deviceRecord();
    void jobSettings();
    void controller();
    void recorderController();
    void waveFileInfo();
    // --- rainy day flows
    void anotherOrderIsSeen();
};

void tst_VirtualSlots::deviceRecord()
{
    using D = NvxDevice;
    QVERIFY(isAscending(slotsOf(&D::updateFromEnquire, &D::friendlyText, &D::serial, &D::setSerial,
                                &D::devType, &D::netHostInfo, &D::setNetHostInfo, &D::jobSettings,
                                &D::mergeJobSettings, &D::triggers, &D::setTriggers, &D::trigger,
                                &D::setIfaceAddr, &D::timeUtc, &D::setTimeUtc, &D::setCmdPortStatus,
                                &D::setStreamPortStatus, &D::setConfigStat)));
}

void tst_VirtualSlots::jobSettings()
{
    using S = HydJobSettings;
    using Check = bool (S::*)(const HydJobSettings&, bool) const;
    QVERIFY(isAscending(slotsOf(
        &S::setMap, &S::auxFunc, &S::setAuxFunc, &S::auxMsg, &S::setAuxMsg, &S::wavLogStartTime,
        &S::setWavLogStartTime, &S::fftRate, &S::setFftRate, &S::fftRef, &S::setFftRef, &S::fftPoints,
        &S::setFftPoints, &S::fftPointsBtw, &S::setFftPointsBtw, &S::fftProcType, &S::setFftProcType,
        &S::fftAccum, &S::setFftAccum, &S::fftWeight, &S::setFftWeight, &S::fftLogMode, &S::setFftLogMode,
        &S::fftLogLen, &S::setFftLogLen, &S::dutyCyclePeriod, &S::setDutyCyclePeriod, &S::dutyCycleActive,
        &S::setDutyCycleActive, &S::dutyCycleIgn, &S::setDutyCycleIgn, &S::wavRate, &S::realWavRate,
        &S::setWavRate, &S::wavDataFormat, &S::setWavDataFormat, &S::wavBitDepth, &S::setWavBitDepth,
        &S::wavByteOrder, &S::setWavByteOrder, &S::wavGain, &S::setWavGain, &S::wavLogMode, &S::setWavLogMode,
        &S::wavLogLen, &S::setWavLogLen, &S::toString, static_cast<Check>(&S::checkSetupMap))));
}

void tst_VirtualSlots::controller()
{
    using C = NvxDeviceController;
    QVERIFY(
        isAscending(slotsOf(&QObject::metaObject, &C::sendEnquire, &C::sendJobSetup, &C::enquireJobSetup,
                            &C::sendSetTime, &C::resetDevice, &C::startUpProc, &C::resetPassword,
                            &C::enquireTriggers, &C::clearTriggers, &C::enquireTimeSync, &C::setupTriggers,
                            &C::mergeJobSettings, &C::handleAdapterResponse, &C::handleErrorResponse)));
}

void tst_VirtualSlots::recorderController()
{
    using C = HydDeviceController;
    QVERIFY(isAscending(slotsOf(&NvxDeviceController::handleErrorResponse, &C::startDataCollect,
                                &C::startDevDataCollect, &C::stopDataCollect)));
    // Overridden, not added.
    QCOMPARE(slotOf(&C::handleAdapterResponse), slotOf(&NvxDeviceController::handleAdapterResponse));
}

void tst_VirtualSlots::waveFileInfo()
{
    using I = NvxWavInfoData;
    QVERIFY(isAscending(slotsOf(
        &I::timestamp, &I::setTimestamp, &I::startSample, &I::setStartSample, &I::deviceType,
        &I::setDeviceType, &I::serialNo, &I::setSerialNo, &I::deviceText, &I::setDeviceText, &I::fileName,
        &I::applyFileName, &I::software, &I::setSoftware, &I::setPeakVolts, &I::sensitivity,
        &I::setSensitivity, &I::temperature, &I::setTemperature, &I::humidity, &I::setHumidity,
        &I::statusExtra, &I::setStatusExtra, &I::hwRelease, &I::setHwRelease, &I::setFullScaleCount)));
}

void tst_VirtualSlots::anotherOrderIsSeen()
{
    using D = NvxDevice;
    QVERIFY(!isAscending(slotsOf(&D::setSerial, &D::serial)));
    QVERIFY(!isAscending(slotsOf(&D::serial, &D::serial)));
    QVERIFY(!isAscending(slotsOf(&D::serial, &D::timeSync)));
}

QTEST_APPLESS_MAIN(tst_VirtualSlots)
#include "tst_VirtualSlots.moc"

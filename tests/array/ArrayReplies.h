#pragma once

#include "NvxQtCommon/array/HydZcrCommandAdapter.h"
#include "NvxQtCommon/contract/device/SkiffDevice.h"
#include "tests/array/CannedReply.h"

#include <QSignalSpy>

/// An adapter of the array controller 600 and what it told. The lists and settings that it emits by reference
/// are copied.
struct ArrayRig
{
    explicit ArrayRig(uint32_t address = 0x7F510301)
    {
        adapter.setNetHostInfo(NvxNetHostInfo(address));
        adapter.setSerial(kSerial);
        QObject::connect(&adapter, &HydZcrCommandAdapter::signalZCRArrayRead, &m_context,
                         [this](std::vector<HydDeviceId>& ids, int serial) {
                             lists << ids;
                             listSerials << serial;
                         });
        QObject::connect(&adapter, &HydZcrCommandAdapter::signalZCRSetConfigRead, &m_context,
                         [this](HydJobSettings& read, int serial) {
                             settings << read;
                             settingsSerials << serial;
                         });
    }

    void reply(const QByteArray& text)
    {
        CannedReply canned(text);
        adapter.handleNetWorkReplay(&canned);
    }
    void listChannels(const std::vector<uint16_t>& serials)
    {
        for (const uint16_t serial : serials) {
            adapter.devIdList().emplace_back(DevTypeSkiff, serial);
            adapter.devIdList().back().setHostDevNo(kSerial);
        }
        adapter.fillSkiffList();
    }

    static constexpr uint16_t kSerial = 600;

    HydZcrCommandAdapter adapter{ConnTcp};
    QSignalSpy configRead{&adapter, &HydZcrCommandAdapter::signalZcrConfigRead};
    QSignalSpy listFilled{&adapter, &HydZcrCommandAdapter::signalZcrDevListFilled};
    QSignalSpy times{&adapter, &HydZcrCommandAdapter::signalZcrTime};
    QList<std::vector<HydDeviceId>> lists;
    QList<int> listSerials;
    QList<HydJobSettings> settings;
    QList<int> settingsSerials;

private:
    QObject m_context;
};

/// The record of a channel.
inline SkiffDevice& channel(ArrayRig& rig, size_t i)
{
    return dynamic_cast<SkiffDevice&>(*rig.adapter.hydDeviceList().at(i));
}

/// A frame of the channel with this serial number.
inline CZCRWebSocket::ZCR_STREAM_STR frameOf(uint16_t serial, int16_t sensitivity = -165)
{
    CZCRWebSocket::ZCR_STREAM_STR frame;
    frame.frameSerial = serial;
    frame.frameChannel = 7;
    frame.frameTemperature = 215;
    frame.frameBandWidth = 1024;
    frame.frameFftRef = -120;
    frame.frameSampleRate = 96000;
    frame.frameSensitivity = sensitivity;
    frame.frameFftAccum = 20;
    return frame;
}

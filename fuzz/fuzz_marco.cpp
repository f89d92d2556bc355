// HydMarcoProcessor: a good datagram is found behind any bytes, and what was read is read again from what it
// is written to.

#include "FuzzTarget.h"

#include "NvxQtCommon/contract/message/HydMarcoProcessor.h"

#include <algorithm>
#include <vector>

namespace {

using Datagrams = std::vector<std::vector<uint8_t>>;

std::vector<uint8_t> bytesOf(const HydMarcoCommand& command)
{
    std::vector<uint8_t> bytes(HydMarcoCommand::kMaxDatagramSize);
    unsigned long long size = 0;
    command.serialize(&size, bytes.data());
    bytes.resize(static_cast<size_t>(size));
    return bytes;
}

Datagrams messages(Bytes input)
{
    Datagrams datagrams;
    CircularByteBuffer buffer(16384);
    HydMarcoProcessor processor;
    feed(buffer, input, 0, [&] {
        MarcoMessageEvent event(buffer);
        processor.setOutOfData(false);
        while (!processor.outOfData()) {
            processor.dispatch(&event);
            if (processor.isAtEndState() && processor.message())
                datagrams.push_back(bytesOf(*processor.message()));
        }
    });
    return datagrams;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Bytes input(data, std::min<size_t>(size, 8192));
    for (const auto& datagram : messages(input))
        require(messages(datagram) == Datagrams{datagram}, "a written datagram reads back");

    static const auto good = bytesOf(HydMarcoCommand(std::make_shared<HydNetworkEnqireCmd>()));
    std::vector<uint8_t> behind(input.begin(), input.end());
    behind.insert(behind.end(), good.begin(), good.end());
    const auto found = messages(behind);
    require(!found.empty() && found.back() == good, "a good datagram is found behind anything");
    return 0;
}

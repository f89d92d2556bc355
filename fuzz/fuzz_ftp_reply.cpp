// Replies of an FTP server: the same bytes in pieces of any size give the same replies, of bounded text; the
// addresses in them are whole or none.

#include "FuzzTarget.h"

#include "NvxQtCommon/transfer/FtpAddresses.h"
#include "NvxQtCommon/transfer/FtpReplyParser.h"

#include <vector>

namespace {

struct Outcome
{
    std::vector<FtpReply> replies;
    bool isBroken = false;
};

Outcome outcomeOf(QByteArrayView bytes, qsizetype piece)
{
    Outcome outcome;
    FtpReplyParser parser;
    for (qsizetype at = 0; at < bytes.size(); at += piece) {
        QByteArrayView input = bytes.sliced(at, std::min(piece, bytes.size() - at));
        while (auto reply = parser.next(input))
            outcome.replies.push_back(std::move(*reply));
        require(input.isEmpty() || parser.isBroken(), "all bytes are taken");
    }
    outcome.isBroken = parser.isBroken();
    return outcome;
}

void checkReply(const FtpReply& reply)
{
    require(reply.code >= 0 && reply.code <= 999, "a code has three digits");
    require(reply.text.size() <= FtpReplyParser::kMaxText, "the text is bounded");
    const auto endpoint = FtpAddresses::passive(reply.text);
    require(!endpoint || (endpoint->port != 0 && !endpoint->address.isNull()), "an address is whole");
    const auto port = FtpAddresses::extendedPassive(reply.text);
    require(!port || *port != 0, "a port isn't 0");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArrayView bytes(data, static_cast<qsizetype>(size));
    const Outcome whole = outcomeOf(bytes, std::max<qsizetype>(bytes.size(), 1));
    for (const FtpReply& reply : whole.replies)
        checkReply(reply);
    for (const qsizetype piece : {1, 7}) {
        const Outcome pieces = outcomeOf(bytes, piece);
        require(pieces.isBroken == whole.isBroken, "pieces break where the whole does");
        require(pieces.replies.size() == whole.replies.size(), "pieces give as many replies");
        for (size_t i = 0; i < whole.replies.size(); ++i)
            require(pieces.replies[i].code == whole.replies[i].code &&
                        pieces.replies[i].text == whole.replies[i].text,
                    "pieces give the same replies");
    }
    return 0;
}

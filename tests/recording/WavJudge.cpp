#include "WavJudge.h"

#include <QFile>
#include <QProcess>
#include <QtEndian>

#include <sndfile.h>

namespace {

QString textOf(SNDFILE* file, int which)
{
    const char* text = sf_get_string(file, which);
    return text != nullptr ? QString::fromUtf8(text) : QString();
}

int bitsOf(int format)
{
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_16:
        return 16;
    case SF_FORMAT_PCM_24:
        return 24;
    case SF_FORMAT_PCM_32:
        return 32;
    default:
        return 0;
    }
}

QString runPeer(const QString& program, const QStringList& arguments)
{
    QProcess peer;
    peer.start(program, arguments);
    if (!peer.waitForStarted() || !peer.waitForFinished(30000))
        return program + QStringLiteral(" did not run");
    const QByteArray complaint = peer.readAllStandardError();
    if (peer.exitStatus() != QProcess::NormalExit || peer.exitCode() != 0 || !complaint.trimmed().isEmpty())
        return program + QStringLiteral(": ") + QString::fromUtf8(complaint);
    return {};
}

} // namespace

JudgedWav judgeWav(const QString& path)
{
    JudgedWav wav;
    SF_INFO info{};
    SNDFILE* file = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (file == nullptr) {
        wav.error = QString::fromUtf8(sf_strerror(nullptr));
        return wav;
    }
    wav.channels = info.channels;
    wav.rate = info.samplerate;
    wav.bits = bitsOf(info.format);
    // libsndfile reports the byte order only where it isn't the format's own.
    wav.isBigEndian = (info.format & SF_FORMAT_ENDMASK) == SF_ENDIAN_BIG;
    wav.frames = info.frames;
    wav.title = textOf(file, SF_STR_TITLE);
    wav.software = textOf(file, SF_STR_SOFTWARE);
    wav.date = textOf(file, SF_STR_DATE);
    wav.comment = textOf(file, SF_STR_COMMENT);
    wav.samples.resize(static_cast<size_t>(info.frames * info.channels));
    if (sf_readf_int(file, wav.samples.data(), info.frames) != info.frames)
        wav.error = QStringLiteral("libsndfile reads fewer frames than it promises");
    if (wav.bits == 0)
        wav.error = QStringLiteral("libsndfile sees no PCM of 16, 24 or 32 bits");
    else
        for (int32_t& sample : wav.samples)
            sample >>= 32 - wav.bits;
    sf_close(file);
    return wav;
}

const RiffChunk* RiffView::chunk(const char* name) const
{
    for (const RiffChunk& each : chunks) {
        if (each.name == name)
            return &each;
    }
    return nullptr;
}

qint64 RiffView::headerSize() const
{
    const RiffChunk* data = chunk("data");
    return data != nullptr ? data->offset : -1;
}

RiffView viewRiff(const QString& path)
{
    RiffView view;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return view;
    view.fileSize = file.size();
    const QByteArray head = file.read(12);
    view.isBigEndian = head.startsWith("RIFX");
    if (head.size() != 12 || (!view.isBigEndian && !head.startsWith("RIFF")) || head.mid(8) != "WAVE")
        return view;
    const auto number = [&view](const QByteArray& bytes) {
        return view.isBigEndian ? qFromBigEndian<quint32>(bytes.constData())
                                : qFromLittleEndian<quint32>(bytes.constData());
    };
    view.riffSize = number(head.mid(4, 4));
    while (file.pos() + 8 <= view.fileSize) {
        RiffChunk chunk;
        chunk.name = file.read(4);
        chunk.size = number(file.read(4));
        chunk.offset = file.pos();
        view.chunks.append(chunk);
        if (chunk.name == "data")
            break;
        const QByteArray content = file.read(chunk.size + chunk.size % 2);
        if (chunk.name == "LIST" && content.startsWith("INFO")) {
            for (qsizetype at = 4; at + 8 <= content.size();) {
                const quint32 size = number(content.mid(at + 4, 4));
                view.info.insert(content.mid(at, 4), content.mid(at + 8, size));
                at += 8 + size + size % 2;
            }
        }
    }
    view.isValid = view.chunk("data") != nullptr && view.chunk("fmt ") != nullptr;
    return view;
}

QString soxObjection(const QString& path)
{
    return runPeer(QStringLiteral("sox"), {QStringLiteral("--info"), path});
}

QString ffprobeObjection(const QString& path)
{
    return runPeer(QStringLiteral("ffprobe"), {QStringLiteral("-v"), QStringLiteral("error"), path});
}

QString wholeFileObjection(const QString& path)
{
    const RiffView view = viewRiff(path);
    if (!view.isValid)
        return QStringLiteral("no wave file");
    if (view.fileSize % 2 != 0)
        return QStringLiteral("the file's length is odd");
    if (view.riffSize + qint64{8} != view.fileSize)
        return QStringLiteral("the RIFF size is %1 in a file of %2").arg(view.riffSize).arg(view.fileSize);
    const RiffChunk& data = *view.chunk("data");
    if (data.offset + data.size + data.size % 2 != view.fileSize)
        return QStringLiteral("the data size is %1 in a file of %2").arg(data.size).arg(view.fileSize);
    const QString error = judgeWav(path).error;
    return error.isEmpty() ? soxObjection(path) : error;
}

#pragma once

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QString>

#include <utility>

/// The text of a spectrum file, put together by hand as docs/file-formats.md gives it; tests change the
/// parts as they go.
struct SpectrumFileText
{
    QByteArray signature = "Nerivox spectrum file\t1\n";
    QByteArray deviceType = "5";
    QByteArray serial = "42";
    QByteArray firmware = "Firm 1.2";
    QByteArray start = "2024-02-29 12:34:56"; // 1709210096
    QByteArray startSample = "5000000001";
    QByteArray rate = "48000";
    QByteArray points = "1024";
    QByteArray pointsBtw = "512";
    QByteArray accums = "20";
    QByteArray powerCalc = "3";
    QByteArray refLevel = "-180";
    QByteArray sensitivity = "-170";
    QByteArray titles = "Time\tComment\tTemperature (C)\tHumidity (%)\tSequence\t0\t46.875\t93.75\n";
    QList<QByteArray> lines{"2024-02-29 12:34:56\t\t12.9\t45.9\t1\t10\t20\t30\n",
                            "2024-02-29 12:34:57\t\t-0.9\t46\t2\t40\t50\t60\n"};

    QByteArray header() const
    {
        return signature + "Type\t0\nDevice type\t" + deviceType + "\nSerial\t" + serial + "\nFirmware\t" +
               firmware + "\nStart\t" + start + "\nStart sample\t" + startSample + "\nSample rate (Hz)\t" +
               rate + "\nPoints\t" + points + "\nPoints between\t" + pointsBtw + "\nAccumulations\t" +
               accums + "\nPower calculation\t" + powerCalc + "\nReference level (dB re 1 V)\t" + refLevel +
               "\nSensitivity (dB re 1 V/uPa)\t" + sensitivity + '\n';
    }
    QByteArray text() const { return header() + titles + lines.join(); }
    bool write(const QString& path) const { return writeBytes(path, text()); }
    static bool writeBytes(const QString& path, const QByteArray& bytes)
    {
        QFile file(path);
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
    }
};

#pragma once

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QString>
#include <QTemporaryDir>

/// A spectrum file as text, put together by hand as docs/file-formats.md gives it, in a folder of its own.
class NoiseFile
{
public:
    static constexpr qint64 kStart = 1709210096; // 2024-02-29 12:34:56

    static QByteArray header(uint32_t rate, uint32_t points = 1024)
    {
        return "Nerivox spectrum file\t1\nType\t10\nStart\t2024-02-29 12:34:56\nSample rate (Hz)\t" +
               QByteArray::number(rate) + "\nPoints\t" + QByteArray::number(points) + '\n';
    }
    static QByteArray titles() { return "Time\tComment\tTemperature (C)\tHumidity (%)\tSequence\t0\t1\n"; }
    /// One record; its line has no end.
    static QByteArray record(const QList<int>& values)
    {
        QByteArray line = "2024-02-29 12:34:57\t\t11.5\t40\t0";
        for (const int value : values)
            line += '\t' + QByteArray::number(value);
        return line;
    }
    /// A whole file of these spectra.
    static QByteArray text(uint32_t rate, const QList<QList<int>>& spectra)
    {
        QByteArray all = header(rate) + titles();
        for (const QList<int>& values : spectra)
            all += record(values) + '\n';
        return all;
    }

    QString folder() const { return m_folder.path(); }
    /// Writes the file of this name.
    void write(const QString& name, const QByteArray& text) const
    {
        QFile file(m_folder.filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
            qFatal("the noise file can't be written");
    }

private:
    QTemporaryDir m_folder;
};

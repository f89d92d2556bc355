#pragma once

#include "NvxQtCommon/transfer/QFtp.h"

#include <QIODevice>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <memory>

/// A command in the client's queue. Belongs to the queue.
struct FtpCommand
{
    int id = 0;
    QFtp::Command kind = QFtp::None;
    /// Host, user, directory or file, and the password or the new name; the text of a raw command.
    QStringList arguments = {};
    quint16 port = 0;
    QFtp::TransferMode mode = QFtp::Passive;
    QFtp::TransferType type = QFtp::Binary;
    /// Of the caller.
    QPointer<QIODevice> device = {};
    bool hasDevice = false;
    /// Bytes to put, in place of a device.
    std::shared_ptr<QIODevice> ownDevice = {};

    QIODevice* sender() const { return ownDevice ? ownDevice.get() : device.data(); }

    /// Why it can't run; empty where it can.
    QString flaw() const;
    /// What to send, each with its line end. `proxiedHost` is the host behind a proxy with its port where it
    /// isn't 21, empty without a proxy.
    QStringList lines(QFtp::TransferMode currentMode, const QString& proxiedHost) const;
    /// The server's text in the frame of this command.
    QString framed(const QString& serverText) const;
};

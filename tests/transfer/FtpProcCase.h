#pragma once

#include "NvxQtCommon/transfer/CFtpProc.h"
#include "tests/transfer/FtpCase.h"

/// A CFtpProc that talks to the packaged server.
class FtpProcCase : public FtpCase
{
    Q_OBJECT

protected:
    using FtpCase::FtpCase;

private Q_SLOTS:
    void init()
    {
        makeFolders();
        m_proc = std::make_unique<CFtpProc>();
        m_proc->setIpAddr(m_address);
        m_errors.clear();
        connect(m_proc.get(), &CFtpProc::signalError, this,
                [this](const QString& text) { m_errors << text; });
    }

protected:
    std::unique_ptr<CFtpProc> m_proc;
    QStringList m_errors;
};

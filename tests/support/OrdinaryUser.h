#pragma once

#include <QtGlobal>

#include <unistd.h>

/// Takes root's rights from the process while it lives, so that the modes of files count in a test that root
/// runs, too. For all threads, one at a time.
class OrdinaryUser
{
public:
    OrdinaryUser()
    {
        // Where that isn't allowed the rights stay; who needs them gone looks.
        if (m_before == 0 && seteuid(kNobody) != 0)
            qInfo("root's rights can't be given up here");
    }
    ~OrdinaryUser()
    {
        if (geteuid() != m_before && seteuid(m_before) != 0)
            qFatal("root's rights can't be had back");
    }
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;

private:
    static constexpr uid_t kNobody = 65534;
    const uid_t m_before = geteuid();
};

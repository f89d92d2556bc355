#include "NvxQtCommon/transfer/QUrlInfo.h"

#include <QDir>

#include <tuple>

bool QUrlInfo::operator==(const QUrlInfo& other) const
{
    const auto fields = [](const QUrlInfo& info) {
        return std::tie(info.m_isValid, info.m_name, info.m_permissions, info.m_owner, info.m_group,
                        info.m_size, info.m_lastModified, info.m_created, info.m_lastRead, info.m_isDir,
                        info.m_isFile, info.m_isSymLink, info.m_isWritable, info.m_isReadable,
                        info.m_isExecutable);
    };
    return fields(*this) == fields(other);
}

bool QUrlInfo::greaterThan(const QUrlInfo& left, const QUrlInfo& right, int sortBy)
{
    switch (sortBy) {
    case QDir::Name:
        return left.name() > right.name();
    case QDir::Time:
        return left.lastModified() > right.lastModified();
    case QDir::Size:
        return left.size() > right.size();
    default:
        return false;
    }
}

bool QUrlInfo::lessThan(const QUrlInfo& left, const QUrlInfo& right, int sortBy)
{
    return !greaterThan(left, right, sortBy);
}

bool QUrlInfo::equal(const QUrlInfo& left, const QUrlInfo& right, int sortBy)
{
    return !greaterThan(left, right, sortBy) && !greaterThan(right, left, sortBy);
}

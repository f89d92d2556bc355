#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <QDateTime>
#include <QMetaType>
#include <QString>

/// One entry of a remote directory. A plain value; invalid until a field is set.
class NVXQTCOMMON_EXPORT QUrlInfo
{
public:
    QUrlInfo() = default;
    QUrlInfo(const QUrlInfo& other) = default;
    QUrlInfo& operator=(const QUrlInfo& other) = default;
    virtual ~QUrlInfo() = default;

    /// True once any field was set.
    bool isValid() const { return m_isValid; }

    QString name() const { return m_name; }
    /// Bit mask: of the owner read 256, write 128, execute 64; of the group 32, 16, 8; of others 4, 2, 1.
    int permissions() const { return m_permissions; }
    QString owner() const { return m_owner; }
    QString group() const { return m_group; }
    /// Bytes.
    qint64 size() const { return m_size; }
    QDateTime lastModified() const { return m_lastModified; }
    QDateTime created() const { return m_created; }
    QDateTime lastRead() const { return m_lastRead; }
    bool isDir() const { return m_isDir; }
    bool isFile() const { return m_isFile; }
    bool isSymLink() const { return m_isSymLink; }
    bool isWritable() const { return m_isWritable; }
    bool isReadable() const { return m_isReadable; }
    bool isExecutable() const { return m_isExecutable; }

    virtual void setName(const QString& name) { set(m_name, name); }
    virtual void setPermissions(int permissions) { set(m_permissions, permissions); }
    virtual void setOwner(const QString& owner) { set(m_owner, owner); }
    virtual void setGroup(const QString& group) { set(m_group, group); }
    virtual void setSize(qint64 size) { set(m_size, size); }
    virtual void setLastModified(const QDateTime& time) { set(m_lastModified, time); }
    virtual void setCreated(const QDateTime& time) { set(m_created, time); }
    virtual void setLastRead(const QDateTime& time) { set(m_lastRead, time); }
    virtual void setDir(bool isDir) { set(m_isDir, isDir); }
    virtual void setFile(bool isFile) { set(m_isFile, isFile); }
    virtual void setSymLink(bool isSymLink) { set(m_isSymLink, isSymLink); }
    virtual void setWritable(bool isWritable) { set(m_isWritable, isWritable); }
    virtual void setReadable(bool isReadable) { set(m_isReadable, isReadable); }
    virtual void setExecutable(bool isExecutable) { set(m_isExecutable, isExecutable); }

    /// All fields are the same. Two invalid entries are equal.
    bool operator==(const QUrlInfo& other) const;

    /// Comparison by `sortBy`: QDir::Name, QDir::Time (lastModified) or QDir::Size. By any other key nothing
    /// is greater and all is equal.
    static bool greaterThan(const QUrlInfo& left, const QUrlInfo& right, int sortBy);
    /// The opposite of greaterThan(): intended that equal entries are less than each other.
    static bool lessThan(const QUrlInfo& left, const QUrlInfo& right, int sortBy);
    static bool equal(const QUrlInfo& left, const QUrlInfo& right, int sortBy);

private:
    template <class Field> void set(Field& field, const Field& value)
    {
        field = value;
        m_isValid = true;
    }

    QString m_name;
    QString m_owner;
    QString m_group;
    QDateTime m_lastModified;
    QDateTime m_created;
    QDateTime m_lastRead;
    qint64 m_size = 0;
    int m_permissions = 0;
    bool m_isDir = false;
    bool m_isFile = false;
    bool m_isSymLink = false;
    bool m_isWritable = false;
    bool m_isReadable = false;
    bool m_isExecutable = false;
    bool m_isValid = false;
};

Q_DECLARE_METATYPE(QUrlInfo)

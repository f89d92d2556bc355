#pragma once

#include <QCoreApplication>
#include <QEvent>
#include <QStringList>

/// Notes the class of each object of the application's thread that goes by deleteLater() while it lives.
class DeletionWatch : public QObject
{
public:
    DeletionWatch() { QCoreApplication::instance()->installEventFilter(this); }

    bool eventFilter(QObject* object, QEvent* event) override
    {
        if (event->type() == QEvent::DeferredDelete)
            m_classes << QString::fromLatin1(object->metaObject()->className());
        return false;
    }

    qsizetype count(const char* className) const { return m_classes.count(QLatin1String(className)); }

private:
    QStringList m_classes;
};

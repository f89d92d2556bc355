#pragma once

#include <QAbstractEventDispatcher>
#include <QObject>
#include <QThread>

/// Deletes an object that may be emitting at the moment: it is deaf and mute at once, and gone a little
/// later. Where no event loop runs any more, as at the end of a thread, the dispatcher takes it along. On the
/// object's thread.
inline void deleteWhenSilent(QObject* object)
{
    object->disconnect();
    object->setParent(QAbstractEventDispatcher::instance(object->thread()));
    object->deleteLater();
}

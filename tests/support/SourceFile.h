#pragma once

#include <QtCore/QString>

/// The path of `file`, which is given from the root of the sources. A function, so that the place of the
/// sources is compiled into one object file alone: every other is the same wherever it is built, and a
/// compiler cache finds it.
QString sourceFile(const QString& file);

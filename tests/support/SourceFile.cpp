#include "tests/support/SourceFile.h"

QString sourceFile(const QString& file)
{
    return QStringLiteral(NVX_SOURCE_DIR "/") + file;
}

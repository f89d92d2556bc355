#include "NvxQtCommon/settings/CClickDetectSettings.h"

#include "NvxQtCommon/settings/SettingsStore.h"

namespace {

enum Key {
    ClickOutputDir,
    ClickPrefix,
    ClickComment,
    LogClickMode,
    LogClickLength,
};

const SettingsKeys& keys()
{
    static const SettingsKeys names{
        {ClickOutputDir, QStringLiteral("ClickOutputDir")}, {ClickPrefix, QStringLiteral("ClickPrefix")},
        {ClickComment, QStringLiteral("ClickComment")},     {LogClickMode, QStringLiteral("LogClickMode")},
        {LogClickLength, QStringLiteral("LogClickLength")},
    };
    return names;
}

} // namespace

template <class Self, class Each> void CClickDetectSettings::forEachValue(Self& self, const Each& each)
{
    each(ClickOutputDir, self.m_outputDir);
    each(ClickPrefix, self.m_prefix);
    each(ClickComment, self.m_comment);
    each(LogClickMode, self.m_logMode);
    each(LogClickLength, self.m_logLength);
}

void CClickDetectSettings::save(QSettings* store, const QString& group) const
{
    forEachValue(*this, SettingsWriter(store, group, keys()));
}

void CClickDetectSettings::load(QSettings* store, const QString& group)
{
    forEachValue(*this, SettingsReader(store, group, keys()));
}

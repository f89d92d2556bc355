#pragma once

#include "NvxQtCommon/contract/recording/DetectorSettings.h"

class QSettings;
class QString;

/// A filter ahead of a detector, as it is stored. A copyable value.
class NVXQTCOMMON_EXPORT CIRFilterPar : public SIRFilterPar
{
public:
    CIRFilterPar() = default;
    explicit CIRFilterPar(const SIRFilterPar& filter) : SIRFilterPar(filter) {}

    /// Stores into `group`; the names of the keys begin with "Audio" when `other` is the same name.
    void save(QSettings* store, const QString& group, const QString& other) const;
    /// A number or bool that is missing loads as 0 or false.
    void load(QSettings* store, const QString& group, const QString& other);

    bool operator==(const CIRFilterPar&) const = default;

private:
    template <class Self, class Each> static void forEachValue(Self& self, const Each& each);
};

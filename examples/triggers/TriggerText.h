#pragma once

#include "NvxQtCommon/contract/message/HydTrigger.h"

#include <QString>

#include <memory>

/// An enabled trigger out of "NUMBER,LOW-HIGH,above|below,THRESHOLD[,DURATION[,HOLD]]": Hz, µPa, seconds.
/// Empty for any other text and for numbers out of their ranges.
std::shared_ptr<HydTrigger> triggerFromText(const QString& text);

/// One line about a trigger, to print.
QString triggerText(const HydTrigger& trigger);

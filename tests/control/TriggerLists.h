#pragma once

#include "NvxQtCommon/contract/message/HydTrigger.h"

#include <memory>
#include <vector>

using TriggerList = std::vector<std::shared_ptr<HydTrigger>>;

/// An event trigger of 10 to 1000 Hz.
inline std::shared_ptr<HydTrigger_5_6> eventTrigger(int number, int threshold = 5000,
                                                    TEST_TYPE type = TestTypeAbove)
{
    auto trigger = std::make_shared<HydTrigger_5_6>();
    trigger->setTestType(type);
    trigger->setTrigNum(static_cast<uint8_t>(number));
    trigger->setEnabled(1);
    trigger->setMinFreq(10);
    trigger->setMaxFreq(1000);
    trigger->setThreshold(static_cast<int16_t>(threshold));
    return trigger;
}

/// A trigger whose class knows no number.
inline std::shared_ptr<HydTrigger> plainTrigger(int type)
{
    auto trigger = std::make_shared<HydTrigger>();
    trigger->setTestType(TEST_TYPE(type));
    return trigger;
}

#include "NvxQtCommon/platform/FreeDescriptors.h"

#include <limits>

size_t freeDescriptors()
{
    return std::numeric_limits<int>::max();
}

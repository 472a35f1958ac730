#include "platform/cancel.h"

#include <atomic>

namespace veltro {

namespace {
std::atomic<bool> cancelled{false};
}

void cancelAllTransfers()
{
    cancelled = true;
}

bool transfersCancelled()
{
    return cancelled;
}

void resetTransferCancel()
{
    cancelled = false;
}

} // namespace veltro

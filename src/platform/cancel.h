#pragma once
// One switch for the whole tool: when the last window closes, every transfer still running
// (downloads, record fetches, mails) is given up at once instead of holding the process until
// a slow server or a time-out lets it go. Transfers check it between their steps.
namespace veltro {

void cancelAllTransfers();
bool transfersCancelled();
// Tests that close a window and go on need the switch off again.
void resetTransferCancel();

} // namespace veltro

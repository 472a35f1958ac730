#pragma once
// How internet.cpp and mail.cpp run a prepared libcurl handle. Only for this folder's sources:
// the rest of the tool sees no libcurl types.
#include "platform/internet.h"

#include <curl/curl.h>

namespace veltro {

// Runs the transfer on the calling thread and returns libcurl's result. It does not start
// once transfersCancelled() is set and is given up soon after it is set, through libcurl's
// progress function: libcurl calls it at least about once a second, also while it waits for a
// silent server. `progress` (optional) is called as the bytes come in; false from it ends the
// transfer too. Either way the result is CURLE_ABORTED_BY_CALLBACK.
CURLcode performTransfer(CURL* curl, const DownloadProgress* progress = nullptr);

} // namespace veltro

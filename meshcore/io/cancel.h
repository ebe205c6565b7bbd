#pragma once
// Cancellation as the file framework offers it; the flag itself lives in the
// platform layer so that operations below io can poll it too.

#include "meshcore/platform/cancel.h"

#pragma once
// Every public header of the library. Kept complete by the header_check test.

#include "meshcore/platform/archive.h"
#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/exceptions.h"
#include "meshcore/platform/object.h"
#include "meshcore/platform/version.h"

#pragma once
// The kx core library: value types, client transforms, pel buffers,
// persistence, exceptions and cancellation.
#include <kx/core/archive.h>
#include <kx/core/attention.h>
#include <kx/core/exception.h>
#include <kx/core/geometry.h>
#include <kx/core/pair.h>
#include <kx/core/pel_buffer.h>
#include <kx/core/persistent.h>
#include <kx/core/radian.h>
#include <kx/core/xform_cache.h>

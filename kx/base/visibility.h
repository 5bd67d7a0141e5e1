#pragma once

#include "kx/base/language.h"

/// Marks the classes and functions that leave the shared library. Everything else stays hidden. Error classes carry it
/// because a type that is thrown across the library's border must be one type on both sides of it.
#define KX_EXPORT __attribute__((visibility("default")))

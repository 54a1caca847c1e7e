#pragma once

/// Marks what `libgkplatform.so` exports. Everything else in it is hidden.
#define GK_API __attribute__((visibility("default")))

#pragma once

namespace orlix::test {

// Instrumented code takes five to twenty times as long. What sanitizers look for, small cases show, too.
#ifdef ORLIX_SANITIZED
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

}  // namespace orlix::test

#pragma once

namespace orlix::test {

// Instrumented code takes five to twenty times as long. What sanitizers look for, small cases show, too. Not a constant
// of the compiler's: tests are compiled alike with and without sanitizers.
extern const bool kSanitized;

}  // namespace orlix::test

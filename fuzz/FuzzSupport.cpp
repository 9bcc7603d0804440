// Sanitizer defaults of every fuzz target.

// The targets use the shared AddressSanitizer runtime (the library under test
// is a shared library). libFuzzer's link lists libstdc++ before it in the
// executables' needed libraries, which the runtime's start-up check rejects.
// The order is harmless here: the runtime still precedes libc in the symbol
// lookup order, so every allocation goes through it, and a call that reaches
// it before its own start-up starts it on the spot.
extern "C" const char* __asan_default_options() {
    return "verify_asan_link_order=0";
}

/* What the library leaves unreleased on purpose, for LeakSanitizer: one function a line, with the
 * reason. */

extern "C" const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions() {
    return "";
}

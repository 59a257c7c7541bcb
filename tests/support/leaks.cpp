/* What the library leaves unreleased on purpose, for LeakSanitizer: one function a line, with the
 * reason. */

extern "C" const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions() {
    return
        // The root and the format tables of an earlier loginit: callers may hold them.
        "leak:copyRoot\n"
        "leak:loadFormats\n"
        // A text of the environment that was replaced: getenv may have handed it out.
        "leak:setEnvVar\n";
}

// Suppressions are not listed at the end: what a child writes to standard error is compared.
extern "C" const char *__lsan_default_options();
extern "C" const char *__lsan_default_options() {
    return "print_suppressions=0";
}

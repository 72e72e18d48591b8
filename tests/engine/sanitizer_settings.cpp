// Sanitizer settings for the engine tests, about the text libraries only.
//
// Leaks: fontconfig keeps its configuration and pattern caches for the life of the process;
// they are not ours to free.
// Races: Pango resolves fontsets on a glib worker thread and hands the patterns over under glib's
// own futex-based locks, which the thread checker cannot see inside uninstrumented libraries; the
// accesses it then reports (in fontconfig, glib, Pango, or reading a handed-over pattern) are
// ordered by those locks.
extern "C" __attribute__((visibility("default"), used)) const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so\n";
}

extern "C" __attribute__((visibility("default"), used)) const char* __tsan_default_suppressions() {
  return "race:libfontconfig.so\n"
         "race:libglib-2.0.so\n"
         "race:libpangoft2-1.0.so\n"
         "race:libpango-1.0.so\n";
}

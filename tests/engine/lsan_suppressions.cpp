// fontconfig keeps its configuration and pattern caches for the life of the process (Pango's
// font map hands them to it from a worker thread); they are not ours to free, so the leak checker
// of sanitizer builds is told to ignore allocations made inside fontconfig only.
extern "C" __attribute__((visibility("default"), used)) const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so\n";
}

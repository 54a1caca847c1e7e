// A shared library that is no module library.
extern "C" __attribute__((visibility("default"))) int somethingElse() {
  return 0;
}

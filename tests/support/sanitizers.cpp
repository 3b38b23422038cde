// Options the sanitizers' run-time libraries ask the program for. A refused allocation is a case
// the code answers, so it is handed on.
extern "C" {

const char *__asan_default_options();
const char *__asan_default_options() {
  return "allocator_may_return_null=1";
}

const char *__tsan_default_options();
const char *__tsan_default_options() {
  return "allocator_may_return_null=1";
}

const char *__ubsan_default_options();
const char *__ubsan_default_options() {
  return "print_stacktrace=1";
}
}

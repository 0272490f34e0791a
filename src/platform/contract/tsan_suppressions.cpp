// SPDX-License-Identifier: Apache-2.0
// Read by ThreadSanitizer, and by nothing else.

extern "C" const char* __tsan_default_suppressions();

// Debian's GLib is not instrumented, and its locks are futexes of its own: what two threads do inside it looks like a
// race although it is ordered. Our own code stays watched.
extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libglib-2.0.so.0\n"
           "called_from_lib:libgobject-2.0.so.0\n"
           "called_from_lib:libgio-2.0.so.0\n";
}

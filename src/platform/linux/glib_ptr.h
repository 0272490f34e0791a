// SPDX-License-Identifier: Apache-2.0
// Owners of GLib's things.
#pragma once

#include <gio/gio.h>

#include <memory>

namespace vexil {

struct GlibRelease {
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(GKeyFile* file) const { g_key_file_free(file); }
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
    void operator()(gchar* text) const { g_free(text); }
    template <class T> void operator()(T* object) const { g_object_unref(object); }
};

template <class T> using GlibPtr = std::unique_ptr<T, GlibRelease>;

} // namespace vexil

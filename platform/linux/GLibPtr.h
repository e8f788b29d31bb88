#pragma once

#include <glib.h>

#include <memory>

// Owning pointers for GLib strings, key files and errors.
struct GFreeDeleter {
    void operator()(gpointer memory) const { g_free(memory); }
};
struct GKeyFileDeleter {
    void operator()(GKeyFile* keyFile) const { g_key_file_unref(keyFile); }
};
struct GErrorDeleter {
    void operator()(GError* error) const { g_error_free(error); }
};

using GCharPtr = std::unique_ptr<gchar, GFreeDeleter>;
using GKeyFilePtr = std::unique_ptr<GKeyFile, GKeyFileDeleter>;
using GErrorPtr = std::unique_ptr<GError, GErrorDeleter>;

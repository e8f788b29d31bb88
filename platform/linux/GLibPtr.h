#pragma once

#include <gio/gio.h>

#include <memory>

// Owning pointers for GLib objects and strings.
struct GObjectDeleter {
    void operator()(gpointer object) const { g_object_unref(object); }
};
struct GFreeDeleter {
    void operator()(gpointer memory) const { g_free(memory); }
};
struct GKeyFileDeleter {
    void operator()(GKeyFile* keyFile) const { g_key_file_unref(keyFile); }
};
struct GErrorDeleter {
    void operator()(GError* error) const { g_error_free(error); }
};

template <typename T> using GObjectPtr = std::unique_ptr<T, GObjectDeleter>;
using GCharPtr = std::unique_ptr<gchar, GFreeDeleter>;
using GKeyFilePtr = std::unique_ptr<GKeyFile, GKeyFileDeleter>;
using GErrorPtr = std::unique_ptr<GError, GErrorDeleter>;

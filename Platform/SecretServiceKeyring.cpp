#include "Platform/SecretServiceKeyring.h"

#include <cstdlib>
#include <gio/gio.h>
#include <libsecret/secret.h>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace marlune {

namespace {

constexpr const char* kSecretsName = "org.freedesktop.secrets";

const SecretSchema* marluneSchema() {
    static const SecretSchema schema = [] {
        SecretSchema s{};
        s.name = "org.marlune.Marlune";
        s.flags = SECRET_SCHEMA_NONE;
        s.attributes[0].name = "item";
        s.attributes[0].type = SECRET_SCHEMA_ATTRIBUTE_STRING;
        return s;
    }();
    return &schema;
}

struct ErrorFree {
    void operator()(GError* error) const { g_error_free(error); }
};
using ErrorPtr = std::unique_ptr<GError, ErrorFree>;

struct ObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
struct VariantUnref {
    void operator()(GVariant* value) const { g_variant_unref(value); }
};
using VariantPtr = std::unique_ptr<GVariant, VariantUnref>;

std::string messageOf(const GError* error) {
    return error != nullptr && error->message != nullptr ? error->message : "unknown error";
}

bool isSocket(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISSOCK(info.st_mode);
}

// GLib would otherwise try to autolaunch a bus through X11 when none is configured, which
// can spawn a daemon or hang on a headless machine.
bool sessionBusConfigured() {
    if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
        address != nullptr && *address != '\0') {
        return true;
    }
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    return runtime != nullptr && *runtime != '\0' && isSocket(std::string(runtime) + "/bus");
}

VariantPtr callBus(GDBusConnection* bus, const char* method, GVariant* parameters,
                   const GVariantType* replyType, int timeoutMs, ErrorPtr& error) {
    GError* raw = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
        parameters, replyType, G_DBUS_CALL_FLAGS_NO_AUTO_START, timeoutMs, nullptr, &raw);
    error.reset(raw);
    return VariantPtr(reply);
}

// Nothing when a Secret Service can take calls; otherwise why not.
std::optional<std::string> unavailableReason(std::chrono::milliseconds timeout) {
    if (!sessionBusConfigured()) {
        return "no D-Bus session bus";
    }
    GError* raw = nullptr;
    std::unique_ptr<GDBusConnection, ObjectUnref> bus(
        g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &raw));
    ErrorPtr error(raw);
    if (!bus) {
        return "cannot connect to the D-Bus session bus: " + messageOf(error.get());
    }
    // The connection is shared with libsecret; losing the bus must not end the application.
    g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
    if (g_dbus_connection_is_closed(bus.get())) {
        return "the D-Bus session bus connection is closed";
    }
    const int timeoutMs = static_cast<int>(timeout.count());

    auto owned = callBus(bus.get(), "NameHasOwner", g_variant_new("(s)", kSecretsName),
                         G_VARIANT_TYPE("(b)"), timeoutMs, error);
    if (!owned) {
        return "the session bus did not answer: " + messageOf(error.get());
    }
    gboolean hasOwner = FALSE;
    g_variant_get(owned.get(), "(b)", &hasOwner);
    if (hasOwner) {
        return std::nullopt;
    }

    auto activatable = callBus(bus.get(), "ListActivatableNames", nullptr, G_VARIANT_TYPE("(as)"),
                               timeoutMs, error);
    if (!activatable) {
        return "the session bus did not answer: " + messageOf(error.get());
    }
    bool canStart = false;
    {
        GVariantIter* names = nullptr;
        const gchar* name = nullptr;
        g_variant_get(activatable.get(), "(as)", &names);
        while (g_variant_iter_loop(names, "&s", &name)) {
            canStart = canStart || g_strcmp0(name, kSecretsName) == 0;
        }
        g_variant_iter_free(names);
    }
    if (!canStart) {
        return "no Secret Service (org.freedesktop.secrets) on the session bus";
    }
    auto started = callBus(bus.get(), "StartServiceByName", g_variant_new("(su)", kSecretsName, 0u),
                           G_VARIANT_TYPE("(u)"), timeoutMs, error);
    if (!started) {
        return "the Secret Service did not start: " + messageOf(error.get());
    }
    return std::nullopt;
}

} // namespace

SecretServiceKeyring::SecretServiceKeyring(std::chrono::milliseconds timeout) : timeout_(timeout) {}

KeyringLookup SecretServiceKeyring::lookup(std::string_view item) {
    if (auto reason = unavailableReason(timeout_)) {
        return KeyringUnavailable{std::move(*reason)};
    }
    const std::string name(item);
    std::unique_ptr<GHashTable, decltype(&g_hash_table_unref)> attributes(
        secret_attributes_build(marluneSchema(), "item", name.c_str(), nullptr),
        &g_hash_table_unref);
    GError* raw = nullptr;
    // Locked items are searched for too: an item that stays locked (unlock prompt dismissed)
    // must not read as "no item", or the caller would make a new key and replace it.
    GList* items = secret_service_search_sync(
        nullptr, marluneSchema(), attributes.get(),
        static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_UNLOCK |
                                       SECRET_SEARCH_LOAD_SECRETS),
        nullptr, &raw);
    ErrorPtr error(raw);
    if (error) {
        return KeyringUnavailable{"the Secret Service refused the lookup: " +
                                  messageOf(error.get())};
    }
    std::optional<KeyringLookup> answer;
    bool sawLocked = false;
    for (GList* node = items; node != nullptr && !answer; node = node->next) {
        auto* secretItem = static_cast<SecretItem*>(node->data);
        if (secret_item_get_locked(secretItem)) {
            sawLocked = true;
            continue;
        }
        SecretValue* value = secret_item_get_secret(secretItem);
        if (value == nullptr) {
            continue;
        }
        if (const gchar* text = secret_value_get_text(value)) {
            answer = KeyringFound{text};
        }
        secret_value_unref(value); // the last reference wipes the secret
    }
    g_list_free_full(items, g_object_unref);
    if (answer) {
        return std::move(*answer);
    }
    if (sawLocked) {
        return KeyringUnavailable{"the keyring holding the item is locked"};
    }
    return KeyringNotFound{};
}

KeyringChange SecretServiceKeyring::store(std::string_view item, std::string_view label,
                                          std::string_view secret) {
    if (auto reason = unavailableReason(timeout_)) {
        return KeyringUnavailable{std::move(*reason)};
    }
    const std::string name(item);
    const std::string labelText(label);
    std::string secretText(secret);
    GError* raw = nullptr;
    const gboolean stored = secret_password_store_sync(
        marluneSchema(), SECRET_COLLECTION_DEFAULT, labelText.c_str(), secretText.c_str(), nullptr,
        &raw, "item", name.c_str(), nullptr);
    secret_password_wipe(secretText.data());
    ErrorPtr error(raw);
    if (!stored || error) {
        return KeyringUnavailable{"the Secret Service did not store the item: " +
                                  messageOf(error.get())};
    }
    return KeyringDone{};
}

KeyringChange SecretServiceKeyring::remove(std::string_view item) {
    if (auto reason = unavailableReason(timeout_)) {
        return KeyringUnavailable{std::move(*reason)};
    }
    const std::string name(item);
    GError* raw = nullptr;
    // FALSE without an error means there was nothing to delete.
    secret_password_clear_sync(marluneSchema(), nullptr, &raw, "item", name.c_str(), nullptr);
    ErrorPtr error(raw);
    if (error) {
        return KeyringUnavailable{"the Secret Service did not delete the item: " +
                                  messageOf(error.get())};
    }
    return KeyringDone{};
}

} // namespace marlune

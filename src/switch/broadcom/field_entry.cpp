#include "switch/broadcom/field_entry.h"

namespace ddal::ethswitch {

namespace {

int install(int entry)
{
    return sdk_on_entry(entry, bcm_field_entry_install);
}

} // namespace

void log_entry_failure(const CallSite &site, int entry, int result)
{
    __ddal_log(LOG_ERR, "%s:%u- %s failed on field entry %d: %s\n", site.caller, site.line, site.callee, entry,
               sdk_text(result));
}

int ensure_entry(FieldGroup group, int entry, bool *created)
{
    const int rv = sdk_result(bcm_field_entry_create_id, kUnit, group, entry);
    *created = rv == BCM_E_NONE;
    if (rv == BCM_E_NONE || rv == BCM_E_EXISTS)
        return 0;
    log_entry_failure({__func__, __LINE__, "bcm_field_entry_create_id"}, entry, rv);
    return rv;
}

int read_action(int entry, bcm_field_action_t kind, std::optional<FieldAction> *action)
{
    FieldAction found{};
    const int rv = sdk_result(bcm_field_action_get, kUnit, entry, kind, &found.first, &found.second);
    action->reset();
    if (rv == BCM_E_NONE)
        *action = found;
    else if (rv != BCM_E_NOT_FOUND) {
        log_entry_failure({__func__, __LINE__, "bcm_field_action_get"}, entry, rv);
        return rv;
    }
    return 0;
}

int put_action(int entry, bcm_field_action_t kind, const FieldAction &action)
{
    std::optional<FieldAction> old;
    int rv = read_action(entry, kind, &old);
    if (rv != 0)
        return rv;
    if (old)
        rv = sdk_on_entry(entry, bcm_field_action_remove, kind);
    if (rv != 0)
        return rv;
    rv = sdk_on_entry(entry, bcm_field_action_add, kind, action.first, action.second);
    if (rv == 0) {
        rv = install(entry);
        if (rv != 0)
            sdk_result(bcm_field_action_remove, kUnit, entry, kind);
    }
    if (rv != 0 && old)
        sdk_result(bcm_field_action_add, kUnit, entry, kind, old->first, old->second);
    return rv;
}

int take_action(int entry, bcm_field_action_t kind, bcm_field_action_t other)
{
    std::optional<FieldAction> old;
    std::optional<FieldAction> rest;
    int rv = read_action(entry, kind, &old);
    if (rv == 0)
        rv = read_action(entry, other, &rest);
    if (rv != 0 || !old)
        return rv;
    rv = sdk_on_entry(entry, bcm_field_action_remove, kind);
    if (rv != 0)
        return rv;
    rv = rest ? install(entry) : sdk_on_entry(entry, bcm_field_entry_remove);
    if (rv != 0)
        sdk_result(bcm_field_action_add, kUnit, entry, kind, old->first, old->second);
    return rv;
}

int destroy_entry(int entry)
{
    int rv = sdk_on_entry(entry, bcm_field_entry_remove);
    if (rv == 0)
        rv = sdk_on_entry(entry, bcm_field_entry_destroy);
    return rv;
}

int qualify_port(int entry, uint32_t port)
{
    return sdk_on_entry(entry, bcm_field_qualify_InPort, static_cast<int>(port), static_cast<int>(kAllBits));
}

int qualify_tag(int entry, bool is_tagged)
{
    constexpr uint8_t kTag = BCM_FIELD_VLAN_FORMAT_OUTER_TAGGED;
    return sdk_on_entry(entry, bcm_field_qualify_VlanFormat, is_tagged ? kTag : uint8_t{0}, kTag);
}

} // namespace ddal::ethswitch

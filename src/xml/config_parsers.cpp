// The configuration-side documents: channel configuration, plain configuration, player
// and download request. Each parser fills a record of its own and copies it over the
// global one only when the whole document was read without error, so a failed parse
// leaves the previous record in place, with its flag cleared.
#include <string_view>

#include "xml/attribute_values.h"

using namespace xml_values;

namespace {

// The end of input where a document may end, and no read error behind it.
bool ended_well(const XmlDocument& doc) { return !doc.read_error(); }

// --- channel configuration -------------------------------------------------------

// Static so that the entries beyond aooItemCount keep what the last parse left, as the
// global record's do.
DRAVIK_CONFIGURATION_CH ch;

// Tokens of an element that allows no nested element, up to its own end tag; `attribute`
// is called for each attribute. A nested start tag or the end of input fails.
template <typename OnAttribute>
int parse_flat(std::string_view name, OnAttribute attribute)
{
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END:
        case XT_START_TAG: return -1;
        case XT_ATTRIBUTE: attribute(attr()); break;
        case XT_END_TAG:
            if (tag() == name) return 0;
            break;
        default: break;
        }
    }
}

int parse_aoo_item(AOO_ITEM* item)
{
    return parse_flat("aoo_item", [item](std::string_view a) {
        if (a == "day") item->day = attr_day();
        else if (a == "mode") item->mode = attr_mode();
        else if (a == "time") attr_time(&item->time_of_day);
        else UnknownAttributeWarning(xt_get_attr_name());
    });
}

int parse_auto_on_off()
{
    ch.aooItemCount = 0;
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE:
            if (attr() == "enable") ch.autoOnOffEnable = attr_bool();
            else UnknownAttributeWarning(xt_get_attr_name());
            break;
        case XT_START_TAG:
            if (tag() == "aoo_item") {
                AOO_ITEM item{0, 1, 0};
                if (parse_aoo_item(&item) != 0) return -1;
                // With 30 stored, this item is dropped and the section is left on purpose:
                // further aoo_items then reach the top level, where their first
                // attribute fails the document.
                if (ch.aooItemCount >= kMaxAooItems) return 0;
                ch.aooItems[ch.aooItemCount++] = item;
            }
            break;
        case XT_END_TAG:
            if (tag() == "auto_on_off") return 0;
            break;
        default: break;
        }
    }
}

int parse_logging()
{
    return parse_flat("logging", [](std::string_view a) {
        if (a == "enable") ch.loggingEnable = attr_bool();
        else if (a == "server") attr_text(ch.loggingServer);
        else if (a == "interval") ch.logInterval = attr_int();
        else if (a == "auto_offset") ch.logAutoOffset = attr_bool();
        else if (a == "offset") ch.logOffset = attr_int();
        else UnknownAttributeWarning(xt_get_attr_name());
    });
}

int parse_timezone()
{
    ch.timezone = 0;
    return parse_flat("timezone", [](std::string_view a) {
        if (a == "tz") ch.timezone = attr_int();
        else UnknownAttributeWarning(xt_get_attr_name());
    });
}

int parse_reboot()
{
    ch.rebootEnable = 0;
    ch.rebootTime = 0;
    return parse_flat("reboot", [](std::string_view a) {
        if (a == "enable") ch.rebootEnable = attr_bool();
        else if (a == "time") attr_time(&ch.rebootTime);
        else UnknownAttributeWarning(xt_get_attr_name());
    });
}

// --- player ------------------------------------------------------------------------

DRAVIK_PLAYER player;

// A `command`: its `name` attribute and the text of its `data` child. Other children
// and attributes are ignored.
int parse_command(dA_ItemCallback callback)
{
    DRAVIK_NAME_DATA item{};
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE:
            if (attr() == "name") attr_text(item.name);
            break;
        case XT_START_TAG:
            if (tag() == "data" && getStringVal(item.data, sizeof item.data) != 0) return -1;
            break;
        case XT_END_TAG:
            if (tag() == "command") {
                if (callback != nullptr) callback(&item);
                return 0;
            }
            break;
        default: break;
        }
    }
}

}  // namespace

int getTSAttributes(char* buf, int size)
{
    if (size <= 0) return -1;
    buf[0] = '\0';
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END:
        case XT_START_TAG: return -1;
        case XT_ATTRIBUTE:
            if (attr() == "server") getAttributeStringVal(buf, size);
            else UnknownAttributeWarning(xt_get_attr_name());
            break;
        case XT_END_TAG: return 0;
        default: break;
        }
    }
}

int dA_ParseConfigurationCH(const char* path)
{
    g_ConfigurationCHValid = 0;
    XmlDocument doc(path);
    if (!doc.ok()) return -1;

    ch.id[0] = '\0';
    ch.loggingServer[0] = '\0';
    ch.primaryTS[0] = '\0';
    ch.secondaryTS[0] = '\0';
    ch.autoOnOffEnable = 0;
    ch.aooItemCount = 0;
    ch.loggingEnable = 0;
    ch.logInterval = 0;
    ch.logAutoOffset = 0;
    ch.logOffset = 0;
    ch.timezone = 0;
    ch.rebootEnable = 0;
    ch.rebootTime = 0;

    for (;;) {
        int r = 0;
        switch (xt_get_token()) {
        case XT_ERROR: return -1;
        case XT_END:
            if (!ended_well(doc)) return -1;
            ConfigurationCH = ch;
            g_ConfigurationCHValid = 1;
            return 0;
        case XT_START_TAG: {
            // Any other element is not skipped as a whole: its attributes reach this
            // level.
            std::string_view t = tag();
            if (t == "auto_on_off") r = parse_auto_on_off();
            else if (t == "pri_ts") r = getTSAttributes(ch.primaryTS, sizeof ch.primaryTS);
            else if (t == "sec_ts") r = getTSAttributes(ch.secondaryTS, sizeof ch.secondaryTS);
            else if (t == "logging") r = parse_logging();
            else if (t == "timezone") r = parse_timezone();
            else if (t == "reboot") r = parse_reboot();
            break;
        }
        case XT_ATTRIBUTE:
            // Strict on purpose: the only attribute allowed at the top level is `id`, so
            // even a namespace declaration on the root fails the document.
            if (attr() != "id") return -1;
            attr_text(ch.id);
            break;
        default: break;  // end tags, text and sections
        }
        if (r != 0) return -1;
    }
}

int dA_ParseConfiguration(const char* path, dA_ItemCallback callback)
{
    g_ConfigurationValid = 0;
    XmlDocument doc(path);
    if (!doc.ok()) return -1;

    DRAVIK_CONFIGURATION local{};
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR: return -1;
        case XT_END:
            if (!ended_well(doc)) return -1;
            Configuration = local;
            g_ConfigurationValid = 1;
            return 0;
        case XT_START_TAG:
            if (tag() == "cfg_item") {
                DRAVIK_NAME_DATA item{};
                bool known = true;
                int r = parse_flat("cfg_item", [&item, &known](std::string_view a) {
                    if (a == "name") attr_text(item.name);
                    else if (a == "data") attr_text(item.data);
                    else known = false;
                });
                if (r != 0 || !known) return -1;
                if (callback != nullptr) callback(&item);
            }
            break;
        case XT_ATTRIBUTE:
            if (attr() != "id") return -1;
            attr_text(local.id);
            break;
        default: break;
        }
    }
}

int dA_ParsePlayer(const char* path, dA_ItemCallback callback)
{
    g_PlayerValid = 0;
    XmlDocument doc(path);
    if (!doc.ok()) return -1;

    player = {};
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR: return -1;
        case XT_END:
            if (!ended_well(doc)) return -1;
            Player = player;
            g_PlayerValid = 1;
            return 0;
        case XT_START_TAG: {
            std::string_view t = tag();
            int r = 0;
            if (t == "current_playlist")
                r = parse_flat("current_playlist", [](std::string_view a) {
                    if (a == "id") attr_text(player.current_playlist_id);
                });
            else if (t == "next_playlist")
                r = parse_flat("next_playlist", [](std::string_view a) {
                    if (a == "id") attr_text(player.next_playlist_id);
                    else if (a == "start_time") attr_text(player.next_playlist_start_time);
                });
            else if (t == "content")
                r = parse_flat("content", [](std::string_view a) {
                    if (a == "id") attr_text(player.content_id);
                });
            else if (t == "configuration")
                r = parse_flat("configuration", [](std::string_view a) {
                    if (a == "id") attr_text(player.configuration_id);
                });
            else if (t == "options")
                r = parse_flat("options", [](std::string_view a) {
                    if (a == "dl_permitted") player.dl_permitted = attr_bool();
                    else if (a == "mode") attr_text(player.mode);
                });
            else if (t == "command")
                r = parse_command(callback);
            if (r != 0) return -1;
            break;
        }
        default: break;  // attributes, end tags, text and sections
        }
    }
}

int dA_ParseDLRequest(const char* path)
{
    g_DLRequestValid = 0;
    XmlDocument doc(path);
    if (!doc.ok()) return -1;

    DRAVIK_DLREQUEST local{0};
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR: return -1;
        case XT_END:
            if (!ended_well(doc)) return -1;
            DLRequest = local;
            g_DLRequestValid = 1;
            return 0;
        case XT_START_TAG:
            if (tag() != "dlrequest") return -1;
            break;
        case XT_ATTRIBUTE:
            if (attr() == "allow") local.allow = attr_int();
            else UnknownAttributeWarning(xt_get_attr_name());
            break;
        default: break;
        }
    }
}

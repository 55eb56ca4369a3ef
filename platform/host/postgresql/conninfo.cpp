#include "platform/host/postgresql/conninfo.h"

#include <libpq-fe.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>

namespace koli::host {
namespace {

// A network that keeps silent is found out by the link's own deadline; these let the kernel close its end,
// too.
constexpr std::pair<const char*, const char*> kDefaults[] = {
    {"gssencmode", "disable"},  // would ask other servers, and wait
    {"keepalives_idle", "5"},
    {"keepalives_interval", "5"},
    {"keepalives_count", "3"},
    {"tcp_user_timeout", "20000"}};

/// The same for every session of this host, and of no other one: a fence tells by it whose session it meets.
std::string NameOfHost() {
    char host[64] = "";
    gethostname(host, sizeof host - 1);
    std::string machine;
    std::ifstream("/etc/machine-id") >> machine;
    char name[128];
    snprintf(name, sizeof name, "koliindexd %08x on %s",
             static_cast<unsigned>(std::hash<std::string>{}(machine + host)), host);
    return name;
}

constexpr const char* kSecrets[] = {"password", "sslpassword"};

/// A value that stands for itself, or in quotes.
std::string Quoted(const std::string& value) {
    if (!value.empty() && value.find_first_of(" \t\n\r\f\v'\\") == std::string::npos) return value;
    std::string quoted = "'";
    for (const char c : value)
        quoted.append(c == '\'' || c == '\\' ? "\\" : "") += c;
    return quoted + "'";
}

}  // namespace

Conninfo::Conninfo(const std::string& text) {
    const std::unique_ptr<PQconninfoOption, decltype(&PQconninfoFree)> options(
        PQconninfoParse(text.c_str(), nullptr), &PQconninfoFree);
    is_valid_ = options != nullptr;
    for (const PQconninfoOption* option = options.get(); is_valid_ && option->keyword != nullptr; ++option)
        if (option->val != nullptr) settings_.emplace_back(option->keyword, option->val);
}

std::string Conninfo::ValueOf(const std::string& name) const {
    for (const auto& [known, value] : settings_)
        if (known == name) return value;
    return "";
}

std::string Conninfo::Place() const {
    std::string place = "postgresql:";
    for (const char* name : {"service", "host", "hostaddr", "port", "dbname"}) {
        const std::string value = ValueOf(name);
        if (!value.empty())
            place.append(place.back() == ':' ? "" : " ").append(name).append("=").append(value);
    }
    return place;
}

bool Conninfo::HasPassword() const {
    return std::ranges::any_of(kSecrets, [this](const char* name) { return !ValueOf(name).empty(); });
}

Conninfo Conninfo::Changed(const std::string& name, const std::string& value) const {
    Conninfo changed = *this;
    std::erase_if(changed.settings_, [&name](const auto& setting) { return setting.first == name; });
    changed.settings_.emplace_back(name, value);
    return changed;
}

std::string Conninfo::Text() const {
    std::string text;
    for (const auto& [name, value] : settings_) {
        if (std::ranges::find(kSecrets, name) != std::end(kSecrets)) continue;
        text.append(text.empty() ? "" : " ").append(name).append("=").append(Quoted(value));
    }
    return text;
}

/// A later pair of the same name wins; the texts' encoding is the layer's to say.
Settings Conninfo::With(const Settings& defaults) const {
    Settings all(std::begin(kDefaults), std::end(kDefaults));
    all.insert(all.end(), defaults.begin(), defaults.end());
    all.insert(all.end(), settings_.begin(), settings_.end());
    all.emplace_back("client_encoding", "UTF8");
    all.emplace_back("application_name", NameOfHost());
    return all;
}

Settings Conninfo::ForWriter() const {
    return With({{"target_session_attrs", "read-write"}});
}

Settings Conninfo::ForReader() const {
    return With({});
}

}  // namespace koli::host

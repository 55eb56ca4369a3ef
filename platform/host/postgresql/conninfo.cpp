#include "platform/host/postgresql/conninfo.h"

#include <libpq-fe.h>
#include <unistd.h>

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

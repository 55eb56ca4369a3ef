#include "platform/host/engine_load.h"

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

#include "base/media_info.h"

namespace koli::host {
namespace {

constexpr const char kPrivateDir[] = "/" KOLI_PRIVATE_DIR "/";  // behind the top of what is installed
constexpr const char kModuleFile[] = "postgresql.so";

/// The module's file beside this program, which may be a private one itself; '' when that cannot be told.
std::string ModulePath() {
    char program[kPathSize];
    const ssize_t length = readlink("/proc/self/exe", program, sizeof program);
    std::string folder(program, length > 0 ? static_cast<size_t>(length) : 0);
    if (folder.empty()) return folder;
    folder.erase(folder.rfind('/') + 1);
    if (!folder.ends_with(kPrivateDir)) folder.append("..").append(kPrivateDir);
    return folder + kModuleFile;
}

/// Null with a sentence why.  It stays loaded: objects of it may live until the end.
const EngineModule* LoadModule(std::string* error) {
    const std::string path = ModulePath();
    if (access(path.c_str(), F_OK) != 0) {
        *error = "the package koliindexd-postgresql is not installed";
        return nullptr;
    }
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    const char* const reason = library == nullptr ? dlerror() : nullptr;
    if (library == nullptr) {
        *error = reason != nullptr ? reason : "?";
        return nullptr;
    }
    const auto* const found = static_cast<const EngineModule*>(dlsym(library, "koli_engine_module"));
    if (found != nullptr && strcmp(found->version, KOLI_VERSION) == 0) return found;
    *error = "the package koliindexd-postgresql is of another version";
    return nullptr;
}

const EngineModule* Module(std::string* error) {
    static std::atomic<const EngineModule*> loaded = nullptr;  // loading it twice gives the same one
    const EngineModule* module = loaded.load();
    if (module == nullptr) loaded = module = LoadModule(error);
    return module;
}

}  // namespace

std::unique_ptr<DatabaseEngine> ServerEngine(const ServerPlace& place, SqlFailure* failure) {
    std::string error;
    const EngineModule* const module = Module(&error);
    if (module == nullptr) {
        *failure = {.reason = error, .passes = true};
        return nullptr;
    }
    std::unique_ptr<DatabaseEngine> engine = module->make(place, &error);
    if (engine == nullptr) *failure = {.reason = error};
    return engine;
}

ServerPlan ServerSetUp(const ServerPlace& place, bool is_to_make) {
    ServerPlan plan;
    const EngineModule* const module = Module(&plan.error);
    return module != nullptr ? module->set_up(place, is_to_make) : plan;
}

}  // namespace koli::host

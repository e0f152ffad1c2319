#include "printlib/library_options.h"

#include <map>
#include <mutex>
#include <string>

#include "base/text.h"

namespace zel {

namespace {

struct Overrides {
    std::mutex lock;
    std::map<std::string, int32_t> values;
};

// Lives until the process ends: worker threads may read it while the process exits.
Overrides& TheOverrides() {
    static Overrides* overrides = new Overrides;
    return *overrides;
}

}  // namespace

int32_t OptionValue(const ZelHost* host, const char* printer, const char* name, int32_t def) {
    {
        Overrides& overrides = TheOverrides();
        std::lock_guard<std::mutex> hold(overrides.lock);
        auto found = overrides.values.find(name);
        if (found != overrides.values.end()) return found->second;
    }
    if (host == nullptr || host->GetOptionValue == nullptr) return def;
    return host->GetOptionValue(host->context, printer, name, def);
}

void SetOptionOverride(const char* name, const char* value) {
    if (name == nullptr || name[0] == '\0') return;
    Overrides& overrides = TheOverrides();
    std::lock_guard<std::mutex> hold(overrides.lock);
    overrides.values[name] = vx::ParseDecimalInt(value != nullptr ? value : "");
}

}  // namespace zel

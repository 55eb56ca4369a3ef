// What the pages are shown with: style, script, icon.  The name of each changes with it, so browsers keep it.
#pragma once

#include <string_view>

#include "tools/serve/http/exchange.h"
#include "tools/serve/page/address.h"

namespace koli::serve {

struct Asset {
    const char* name;
    const char* type;
    std::string_view text;
};

const Asset& StyleAsset();
const Asset& ScriptAsset();
const Asset& IconAsset();

Address AddressOf(const Asset& asset);

/// The reply for the asset of that name, 404 when there is none.
Reply AssetReply(std::string_view name);

}  // namespace koli::serve

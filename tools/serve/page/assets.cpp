#include "tools/serve/page/assets.h"

#include "asset_texts.h"

namespace koli::serve {
namespace {

constexpr char kForGood[] = "private, max-age=31536000, immutable";
constexpr Asset kAssets[] = {{kStyleName, "text/css; charset=utf-8", kStyle},
                             {kScriptName, "text/javascript; charset=utf-8", kScript},
                             {kIconName, "image/svg+xml", kIcon}};

}  // namespace

const Asset& StyleAsset() {
    return kAssets[0];
}

const Asset& ScriptAsset() {
    return kAssets[1];
}

const Asset& IconAsset() {
    return kAssets[2];
}

Address AddressOf(const Asset& asset) {
    return Address("/assets").Path(asset.name);
}

Reply AssetReply(std::string_view name) {
    for (const Asset& asset : kAssets)
        if (asset.name == name)
            return {.type = asset.type,
                    .body = std::string(asset.text),
                    .headers = {{"Cache-Control", kForGood}}};
    return PlainReply(404, "There is nothing at this address.");
}

}  // namespace koli::serve

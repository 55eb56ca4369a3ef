#include "tools/serve/library/order.h"

#include <algorithm>
#include <numeric>
#include <string_view>

#include "base/text/fold.h"

namespace koli::serve {

std::vector<uint32_t> OrderedByText(std::vector<uint32_t> numbers,
                                    const std::function<std::string(uint32_t)>& text) {
    // One room for all keys: strings of their own would need several times as much.
    std::string keys, key;
    std::vector<uint32_t> begins{0};
    for (const uint32_t number : numbers) {
        SortKeyTo(text(number), &key);
        keys += key;
        begins.push_back(static_cast<uint32_t>(keys.size()));
    }
    const auto key_of = [&](uint32_t i) {
        return std::string_view(keys).substr(begins[i], begins[i + 1] - begins[i]);
    };
    std::vector<uint32_t> order(numbers.size());
    std::iota(order.begin(), order.end(), 0U);
    std::sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
        const int compared = key_of(a).compare(key_of(b));
        return compared != 0 ? compared < 0 : numbers[a] < numbers[b];
    });
    for (uint32_t& i : order)
        i = numbers[i];
    return order;
}

}  // namespace koli::serve

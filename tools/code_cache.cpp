#include "code_cache.h"

namespace cli {

bool CodeCache::seen(const std::string& code, long frame) {
    // Codes long gone are dropped, so that a long stream does not grow the map.
    for (auto it = last_.begin(); it != last_.end();)
        it = frame - it->second > forget_ ? last_.erase(it) : std::next(it);
    const bool news = forget_ <= 0 || last_.count(code) == 0;
    last_[code] = frame;
    return news;
}

}  // namespace cli

#include "handleregistry.h"

#include <algorithm>
#include <functional>
#include <vector>

namespace {

const size_t kLinger = 4096;

} // namespace

HandleRegistry &HandleRegistry::instance()
{
    // Never destroyed: a host may call in while the process exits.
    static HandleRegistry *registry = new HandleRegistry;
    return *registry;
}

void *HandleRegistry::add(std::unique_ptr<TokenObject> object)
{
    TokenObject *raw = object.get();
    m_live.emplace(raw, std::move(object));
    return raw;
}

TokenObject *HandleRegistry::find(const void *handle, TokenObject::Kind kind) const
{
    TokenObject *o = find(handle);
    return o && o->kind() == kind ? o : nullptr;
}

TokenObject *HandleRegistry::find(const void *handle) const
{
    const auto it = handle ? m_live.find(handle) : m_live.end();
    return it == m_live.end() ? nullptr : it->second.get();
}

void HandleRegistry::close(TokenObject *object)
{
    // One pass over the live handles per level of ownership (connection,
    // application, container), not one per object: a connection closed
    // with a thousand hash objects open costs a few passes, not a thousand.
    std::vector<TokenObject *> doomed{object};
    std::vector<const TokenObject *> level{object};
    const std::less<const TokenObject *> before;
    while (!level.empty()) {
        std::vector<const TokenObject *> next;
        for (const auto &entry : m_live) {
            TokenObject *o = entry.second.get();
            if (o->owner() != o && std::binary_search(level.begin(), level.end(), o->owner(), before)) {
                doomed.push_back(o);
                next.push_back(o);
            }
        }
        std::sort(next.begin(), next.end(), before);
        level.swap(next);
    }
    // Owned objects first, the object itself last.
    for (auto it = doomed.rbegin(); it != doomed.rend(); ++it) {
        auto found = m_live.find(*it);
        if (found == m_live.end())
            continue;
        found->second->release();
        m_closed.push_back(std::move(found->second));
        m_live.erase(found);
    }
    while (m_closed.size() > kLinger)
        m_closed.pop_front();
}

// Every live handle of the process. A handle is checked here before it is
// used, so an unknown, closed or wrong-kind handle is an error code and
// never a crash. Closed objects linger a while before they are freed, so
// that a stale handle does not at once alias a new object.
#ifndef SOFTTOKEN_HANDLEREGISTRY_H
#define SOFTTOKEN_HANDLEREGISTRY_H

#include "tokenobject.h"

#include <deque>
#include <memory>
#include <unordered_map>

class HandleRegistry
{
public:
    static HandleRegistry &instance();

    void *add(std::unique_ptr<TokenObject> object);
    TokenObject *find(const void *handle, TokenObject::Kind kind) const;
    // Of any kind.
    TokenObject *find(const void *handle) const;
    // Closes the object and everything it owns, directly or not.
    void close(TokenObject *object);

private:
    std::unordered_map<const void *, std::unique_ptr<TokenObject>> m_live;
    std::deque<std::unique_ptr<TokenObject>> m_closed;
};

#endif // SOFTTOKEN_HANDLEREGISTRY_H

#pragma once
// What every object handed to a host shares: its reference count and the
// rule that keeps it alive through nested calls, the tear-off layout of its
// interfaces, and the guard that keeps exceptions out of the host's code.
// Used by the objects of shell/Com*.cpp only.
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "shell/Guids.h"
#include "shell/ObjectFactory.h"

namespace com {


// Calls that can run the control's handlers (Invoke and the pumps) nest on
// the control's thread. An object whose last reference goes inside one of
// them, typically from an event sink, lives until the outermost call ends,
// so that no handler returns into a freed control.
class ComObject;
inline thread_local int t_callDepth = 0;
inline thread_local std::vector<ComObject*>* t_releasedInCall = nullptr;

class ComObject {
public:
    ComObject() { AfxOleObjectCreated(); }
    virtual ~ComObject() { AfxOleObjectDestroyed(); }
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    uint32_t AddRef() { return ++m_references; }
    uint32_t Release()
    {
        uint32_t left = --m_references;
        if (left == 0) {
            if (t_callDepth > 0) {
                if (t_releasedInCall == nullptr) t_releasedInCall = new std::vector<ComObject*>;
                t_releasedInCall->push_back(this);
            } else {
                delete this;
            }
        }
        return left;
    }

private:
    std::atomic<uint32_t> m_references{1};
};

class CallScope {
public:
    CallScope() { ++t_callDepth; }
    ~CallScope()
    {
        if (--t_callDepth > 0 || t_releasedInCall == nullptr) return;
        std::vector<ComObject*>* released = t_releasedInCall;
        t_releasedInCall = nullptr;
        for (ComObject* object : *released) delete object;
        delete released;
    }
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;
};

// One interface of an object: the table pointer the host sees, then the
// object it belongs to.
template <class Interface, class Owner>
struct Tearoff {
    Interface iface;
    Owner* owner;
};

template <class Owner, class Interface>
Owner* OwnerOf(Interface* self)
{
    return reinterpret_cast<Tearoff<Interface, Owner>*>(self)->owner;
}

// No exception may cross into the host's code.
template <class Body>
TVHRESULT Guarded(Body&& body)
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return TEMPVOX_E_OUTOFMEMORY;
    } catch (...) {
        return TEMPVOX_E_FAIL;
    }
}

inline char* CopyToHost(const std::string& text)
{
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy != nullptr) std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

template <class Interface, class Owner>
TVHRESULT Answer(Tearoff<Interface, Owner>& tearoff, Owner& owner, void** object)
{
    owner.AddRef();
    *object = &tearoff.iface;
    return TEMPVOX_S_OK;
}

// A new object handed out under `riid`: the creation reference goes once
// the interface holds its own.
template <class Object, class... Args>
TVHRESULT HandOut(const TempvoxGuid& riid, void** object, Args&&... args)
{
    if (object == nullptr) return TEMPVOX_E_POINTER;
    *object = nullptr;
    Object* created = new Object(std::forward<Args>(args)...);
    TVHRESULT hr = created->QueryInterface(riid, object);
    created->Release();
    return hr;
}


}  // namespace com

#include "shell/RuntimeClasses.h"

#include <cstring>
#include <mutex>

namespace {

struct ClassList {
    std::mutex lock;
    std::vector<const CRuntimeClass*> classes;
};

// Function-local, so that registrations from static constructors of other
// files find the list built whatever the order of initialisation.
ClassList& Classes()
{
    static ClassList list;
    return list;
}

}  // namespace

void AfxClassInit(const CRuntimeClass* runtimeClass)
{
    if (runtimeClass == nullptr || runtimeClass->m_lpszClassName == nullptr) return;
    ClassList& list = Classes();
    std::lock_guard<std::mutex> guard(list.lock);
    for (const CRuntimeClass* known : list.classes) {
        if (std::strcmp(known->m_lpszClassName, runtimeClass->m_lpszClassName) == 0) return;
    }
    list.classes.push_back(runtimeClass);
}

const CRuntimeClass* AfxFindRuntimeClass(const char* className)
{
    if (className == nullptr) return nullptr;
    ClassList& list = Classes();
    std::lock_guard<std::mutex> guard(list.lock);
    for (const CRuntimeClass* known : list.classes) {
        if (std::strcmp(known->m_lpszClassName, className) == 0) return known;
    }
    return nullptr;
}

std::vector<const CRuntimeClass*> AfxRuntimeClasses()
{
    ClassList& list = Classes();
    std::lock_guard<std::mutex> guard(list.lock);
    return list.classes;
}

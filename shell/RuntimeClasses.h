#pragma once
#include <vector>

#include "platform/Wnd.h"

// The classes the module makes known when it loads, so that an object can
// be made from its class name alone.
void AfxClassInit(const CRuntimeClass* runtimeClass);

// The class registered under `className`, or nullptr.
const CRuntimeClass* AfxFindRuntimeClass(const char* className);

// Every class made known so far, in the order of registration.
std::vector<const CRuntimeClass*> AfxRuntimeClasses();

#pragma once
#include <mutex>

// A critical section: recursive, like the platform's original.
class CCriticalSection {
public:
    void Lock() { m_mutex.lock(); }
    void Unlock() { m_mutex.unlock(); }
private:
    std::recursive_mutex m_mutex;
};

class CSingleLock {
public:
    explicit CSingleLock(CCriticalSection& section) : m_section(section) { m_section.Lock(); }
    ~CSingleLock() { m_section.Unlock(); }
    CSingleLock(const CSingleLock&) = delete;
    CSingleLock& operator=(const CSingleLock&) = delete;
private:
    CCriticalSection& m_section;
};

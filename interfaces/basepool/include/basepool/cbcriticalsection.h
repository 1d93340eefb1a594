#pragma once
// A recursive lock, its scope guard, and the locks that guard the reference counts of
// shared objects.
#include <mutex>

class CbCriticalSection {
public:
    CbCriticalSection() = default;
    CbCriticalSection(const CbCriticalSection&) = delete;
    CbCriticalSection& operator=(const CbCriticalSection&) = delete;

    // The owning thread may enter again; each Enter needs its Leave.
    void Enter() { m_mutex.lock(); }
    bool TryEnter() { return m_mutex.try_lock(); }
    void Leave() { m_mutex.unlock(); }

private:
    std::recursive_mutex m_mutex;
};

// Holds a critical section for the lifetime of the guard.
class CbLock {
public:
    explicit CbLock(CbCriticalSection& section) : m_section(section) { m_section.Enter(); }
    ~CbLock() { m_section.Leave(); }
    CbLock(const CbLock&) = delete;
    CbLock& operator=(const CbLock&) = delete;

private:
    CbCriticalSection& m_section;
};

// The lock guarding the reference count of `sharedObject`. Objects share a fixed table of
// locks by address, so the same object always gets the same lock and two objects may
// share one (harmless: the locks are recursive and held only around count updates).
CbCriticalSection& ReferenceCounter_GetCriticalSection(const void* sharedObject);

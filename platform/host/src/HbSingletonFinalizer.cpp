#include "HbFramework/HbSingletonFinalizer.h"

#include <cstdlib>
#include <mutex>
#include <vector>

namespace {

// Every member is guarded by `mutex`; no function is called with it held.
struct FinalizerState {
    std::mutex mutex;
    std::vector<std::function<void()>> hooks;                     // run first, in order
    std::vector<HbSingletonFinalizer::DestroyFunc> destroyFuncs;  // run last to first
    std::vector<std::function<void()>> stoppers;                  // run last, in order
    unsigned long destroyFuncCalls = 0;                           // addDestroyFunc() calls
};

void finalizeAtExit() {
    HbSingletonFinalizer::finalize();
}

// Created on first use and never destroyed, so finalize() works at exit.
FinalizerState& state() {
    static FinalizerState* s = [] {
        FinalizerState* created = new FinalizerState();
        std::atexit(finalizeAtExit);
        return created;
    }();
    return *s;
}

// Takes the last entry of `list` under the lock; false when the list is empty.
template <class T>
bool popLast(std::vector<T>& list, T& out) {
    std::lock_guard<std::mutex> lock(state().mutex);
    if (list.empty()) {
        return false;
    }
    out = list.back();
    list.pop_back();
    return true;
}

// Takes the first entry of `list` under the lock; false when the list is empty.
bool popFirst(std::vector<std::function<void()>>& list, std::function<void()>& out) {
    std::lock_guard<std::mutex> lock(state().mutex);
    if (list.empty()) {
        return false;
    }
    out = list.front();
    list.erase(list.begin());
    return true;
}

}  // namespace

void HbSingletonFinalizer::addDestroyFunc(DestroyFunc func) {
    if (func == nullptr) {
        return;
    }
    FinalizerState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.destroyFuncs.push_back(func);
    ++s.destroyFuncCalls;
}

unsigned long HbSingletonFinalizer::DestroyFuncCalls() {
    FinalizerState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.destroyFuncCalls;
}

void HbSingletonFinalizer::addShutdownHook(std::function<void()> hook) {
    FinalizerState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.hooks.push_back(std::move(hook));
}

void HbSingletonFinalizer::addThreadStopper(std::function<void()> stop) {
    FinalizerState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.stoppers.push_back(std::move(stop));
}

// Each function runs with no lock held, so a destructor may itself create or
// register further singletons; those are destroyed in the same pass.
void HbSingletonFinalizer::finalize() {
    FinalizerState& s = state();
    std::function<void()> hook;
    while (popFirst(s.hooks, hook)) {
        hook();
    }
    DestroyFunc destroy = nullptr;
    while (popLast(s.destroyFuncs, destroy)) {
        destroy();
    }
    std::function<void()> stop;
    while (popFirst(s.stoppers, stop)) {
        stop();
    }
}

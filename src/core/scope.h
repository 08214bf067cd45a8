// Releasing a handle at the end of a scope.
#pragma once

// Runs a release function on a handle at the end of the scope. release is called for any handle the scope
// was built with, so build one only around a handle that is open.
template <typename Handle, typename Release> class scope_release {
public:
    scope_release(Handle handle, Release release) : handle_(handle), release_(release) {}
    ~scope_release() { release_(handle_); }
    scope_release(const scope_release &) = delete;
    scope_release &operator=(const scope_release &) = delete;

private:
    Handle handle_;
    Release release_;
};

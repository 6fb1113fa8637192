// Switches of the board's kernel module.
#pragma once

#include <string>

namespace rig {

// Sets a switch and waits until it takes effect in the page of the next frame.
void set_switch(const std::string &name, const std::string &value);
std::string get_switch(const std::string &name);

// Holds a switch off for a scope.
class SwitchedOff {
public:
    explicit SwitchedOff(const std::string &name) : name_(name) { set_switch(name_, "0"); }
    SwitchedOff(const SwitchedOff &) = delete;
    SwitchedOff &operator=(const SwitchedOff &) = delete;
    ~SwitchedOff() { set_switch(name_, "1"); }

private:
    std::string name_;
};

} // namespace rig

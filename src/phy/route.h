// The back end that serves a PHY operation: the Broadcom switch, an external switch or the PHY itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <type_traits>

#include "phy/association.h"

namespace ddal::phy {

// Rule for the external switch behind backhaul port 3. kCachedType also limits the MBO board to its 2.5G PHY.
enum class Rule { kFitting, kCachedType };

// Checks before any back end is called.
enum class Needs {
    kNothing,
    kPhys,          // -ENOSYS on the board whose PHYs cannot be accessed
    kCopper,        // without a switch, only a copper PHY serves the operation
    kPhysAndCopper, // both
};

struct Operation {
    const char *mbo_text; // "MBO board <text> error: <phy_dev>"
    const char *external; // name of the external switch's operation; null if it lacks one
    Rule rule;
    Needs needs;
    const char *output = nullptr; // name of the output that must not be NULL
};

// An operation with its implementations in the two switches.
template <typename... Parameters>
struct Served : Operation {
    int (*by_broadcom)(uint32_t port, Parameters...);
    int (*by_external)(uint32_t port, Parameters...);
};
template <typename... Parameters>
Served(Operation, int (*)(uint32_t, Parameters...), int (*)(uint32_t, Parameters...)) -> Served<Parameters...>;
template <typename... Parameters>
Served(Operation, int (*)(uint32_t, Parameters...), std::nullptr_t) -> Served<Parameters...>;

class Route {
public:
    // Logs failures under the caller's name.
    Route(const char *caller, uint32_t phy_dev) : caller_(caller), phy_dev_(phy_dev) {}

    // Returns the result if the operation is refused or a switch serves it. Returns nothing if the PHY of found()
    // serves it.
    template <typename... Parameters>
    std::optional<int> ask(const Served<Parameters...> &operation, std::type_identity_t<Parameters>... arguments)
    {
        return serve(&Route::find, operation, arguments...);
    }

    // Does the same in two steps: first the Broadcom switch or the interface, then the back end of the interface.
    template <typename... Parameters>
    std::optional<int> ask_first(const Served<Parameters...> &operation, std::type_identity_t<Parameters>... arguments)
    {
        return serve(&Route::find_first, operation, arguments...);
    }
    template <typename... Parameters>
    std::optional<int> ask_behind_interface(const Served<Parameters...> &operation,
                                            std::type_identity_t<Parameters>... arguments)
    {
        const int rc = find_behind_interface(operation);
        return rc != 0 ? rc : answer(operation, arguments...);
    }

    // Returns the network interface, which is empty on the MBO board.
    const Interface &found() const { return found_; }

private:
    enum class BackEnd { kBroadcom, kExternal, kLocal };

    static constexpr bool is_null(uint32_t) { return false; }
    static constexpr bool is_null(const void *output) { return !output; }

    int admit(const Operation &operation, bool output_missing) const;
    int find(const Operation &operation);
    int find_first(const Operation &operation);
    int find_behind_interface(const Operation &operation);
    int find_on_mbo(const Operation &operation);
    int find_behind_backhaul_3(const Operation &operation);
    void find_behind_soc_port();

    template <typename... Parameters>
    std::optional<int> serve(int (Route::*step)(const Operation &), const Served<Parameters...> &operation,
                             Parameters... arguments)
    {
        int rc = admit(operation, (is_null(arguments) || ...));
        if (rc == 0)
            rc = (this->*step)(operation);
        return rc != 0 ? rc : answer(operation, arguments...);
    }
    template <typename... Parameters>
    std::optional<int> answer(const Served<Parameters...> &operation, Parameters... arguments) const
    {
        if (back_end_ == BackEnd::kBroadcom)
            return finish_broadcom(operation, operation.by_broadcom(port_, arguments...));
        if (back_end_ == BackEnd::kExternal)
            return operation.by_external ? finish_external(operation, operation.by_external(port_, arguments...))
                                         : refuse_external();
        const int rc = check_copper(operation);
        return rc != 0 ? std::optional{rc} : std::nullopt;
    }
    int finish_broadcom(const Operation &operation, int rc) const;
    int finish_external(const Operation &operation, int rc) const;
    int refuse_external() const;
    int check_copper(const Operation &operation) const;

    const char *caller_;
    uint32_t phy_dev_;
    BackEnd back_end_ = BackEnd::kLocal;
    uint32_t port_ = 0; // port of the Broadcom or external switch
    Interface found_{};
};

} // namespace ddal::phy

#ifndef STRATA_LAUNCHER_TEST_FAKE_STRATEGY_HPP
#define STRATA_LAUNCHER_TEST_FAKE_STRATEGY_HPP

#include <functional>

#include "strategies/launcher_strategy_interface.hpp"

// Counts what the launcher does with it; the counters outlive the strategy, which the
// restart loop deletes at the end of each pass.
struct Strategy_record {
    int created{0};
    int prepared{0};
    int started{0};
    int stopped{0};
    int deleted{0};
    System_call_api_interface* api{nullptr};
    Launcher_interface* launcher{nullptr};
};

class Fake_strategy : public Launcher_strategy_interface {
public:
    Fake_strategy(Strategy_record& record, bool prepare_result, bool start_result)
        : record_(record), prepare_result_(prepare_result), start_result_(start_result)
    {
        ++record_.created;
    }
    ~Fake_strategy() override { ++record_.deleted; }

    bool prepare(System_call_api_interface* api, Launcher_interface* launcher) override
    {
        ++record_.prepared;
        record_.api = api;
        record_.launcher = launcher;
        return prepare_result_;
    }
    bool start() override
    {
        ++record_.started;
        if (on_start) {
            on_start();
        }
        return start_result_;
    }
    void stop() override { ++record_.stopped; }
    Daemon_handler_interface* get_daemon_handler() override { return nullptr; }

    std::function<void()> on_start;

private:
    Strategy_record& record_;
    bool prepare_result_;
    bool start_result_;
};

#endif

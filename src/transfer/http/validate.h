// Testing the proxies of a list, one after another.
#pragma once

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "transfer/connection/base_socket.h"

namespace vantlow {

/// The outcome of the test of one proxy.
struct ProxyTest {
    bool ok = false;
    std::chrono::milliseconds elapsed{0};  ///< from connecting to the answer
    int status = 0;                        ///< of the answer; 0: none came
    Result result;                         ///< why there is none
    std::string text;                      ///< a sentence
};

/// The proxies to test, and how.
struct ValidatePlan {
    std::vector<ProxyPlan> proxies;
    std::string
        address;  ///< "http://..." or "https://..."; the default port is 80 for both: no TLS is spoken
    std::chrono::milliseconds timeout{60000};
};

/// A thread that asks for one address through each proxy. Statuses below 400 are a proxy that works; 401 and
/// 407 mean that it wants other credentials.
class CValidateThread {
  public:
    /// `tested` is called for each proxy in order, with its index, from the thread. What is referred to
    /// outlives the object.
    CValidateThread(ConnectionServices& services, LogSink& log, const StopSource& stop, ValidatePlan plan,
                    std::function<void(std::size_t, const ProxyTest&)> tested);
    ~CValidateThread() { join(); }
    CValidateThread(const CValidateThread&) = delete;
    CValidateThread& operator=(const CValidateThread&) = delete;

    /// Fails where the system gives no further thread.
    Result start();
    void join();

  private:
    void run();
    ProxyTest test(const ProxyPlan& proxy);

    ConnectionServices& services_;
    LogSink& log_;
    const StopSource& stop_;
    ValidatePlan plan_;
    std::function<void(std::size_t, const ProxyTest&)> tested_;
    std::thread thread_;  ///< last
};

}  // namespace vantlow

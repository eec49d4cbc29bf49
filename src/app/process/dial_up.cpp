#include "app/process/dial_up.h"

#include "platform/dial_up.h"

namespace vantlow {

Result dial_as_set(CFerrywellApp& app, LogSink& log) {
    DialUpPlan plan;
    plan.entry = app.settings().text(setting::dial_up_entry);
    if (plan.entry.empty()) return {};
    plan.user = app.settings().text(setting::dial_up_user);
    plan.password = app.settings().text(setting::dial_up_password);
    const RasTable& ras = app.libraries().ras;
    const DialUpOperations operations{ras.RasEnumConnectionsW, ras.RasGetEntryDialParamsW, ras.RasDialW,
                                      ras.RasHangUpW, ras.RasGetErrorStringW};
    return dial_up(operations, plan, app.stop(), log);
}

}  // namespace vantlow

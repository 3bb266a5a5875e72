#pragma once

#include "gui/instance/LaunchRequest.h"

#include <QString>
#include <functional>
#include <optional>

// One Lumenvale per desktop session. The running application owns the session bus
// name of its application id (app.lumenvale.Lumenvale) and answers the freedesktop
// Application interface (org.freedesktop.Application) on the object
// /app/lumenvale/Lumenvale, as desktops expect of an application:
//   Activate(a{sv} platform_data)                          ActivateRequest
//   Open(as uris, a{sv} platform_data)                     OpenRequest
//   ActivateAction(s name, av parameter, a{sv} platform_data)
//                           name screen|area|window|stop:  ActionRequest (no parameter)
// A launch that finds the name taken hands its request over with forward() and ends,
// so there is never a second tray icon.
//
// Threads: the GUI thread, with a Q(Core)Application in place. Calls from the bus are
// answered from its event loop.
namespace lumenvale::AppInstance {

// How long a launch waits for the running application to take its request.
inline constexpr int answerTimeoutMs = 5000;

struct Claim {
    enum class Outcome {
        claimed,       // this process is the application: requests now come to `perform`
        heldElsewhere, // another Lumenvale runs: forward() the request to it
        unavailable,   // no session bus, or it refused the name: run alone (`problem` says why)
    };
    Outcome outcome = Outcome::unavailable;
    QString problem; // a sentence, for `unavailable`
};

// Publishes the object, then asks for the name (without queueing for it, so of two
// launches racing only one gets it). Once claimed, every call's request goes to
// `perform` on the GUI thread, after the call has been answered; an action name that
// is none of the four is refused with a D-Bus error. Call at most once per process.
Claim claim(std::function<void(const LaunchRequest&)> perform);

// Hands `request` to the application holding the name and waits up to
// answerTimeoutMs for it to take it. Nothing when it did; otherwise a sentence for
// the user (no answer in time, no application running any more, a refusal).
std::optional<QString> forward(const LaunchRequest& request);

} // namespace lumenvale::AppInstance

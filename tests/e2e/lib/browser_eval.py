#!/usr/bin/env python3
"""Opens a page in headless Chromium and prints what its `window.result` promise
resolves to. Talks to the browser over --remote-debugging-pipe (DevTools protocol:
JSON messages ending in NUL, written to its fd 3 and read from its fd 4), so it waits
for the page's own events for as long as they take, up to a limit.

    browser_eval.py PAGE_FILE [SECONDS]
"""
import json
import os
import subprocess
import sys
import tempfile


def main():
    page = os.path.abspath(sys.argv[1])
    limit = float(sys.argv[2]) if len(sys.argv) > 2 else 60
    to_browser_read, to_browser_write = os.pipe()
    from_browser_read, from_browser_write = os.pipe()
    profile = tempfile.mkdtemp(prefix="lumenvale-chromium-")
    # The browser reads its commands on fd 3 and writes its answers on fd 4.
    def child_fds():
        commands, answers = os.dup(to_browser_read), os.dup(from_browser_write)
        os.dup2(commands, 3)
        os.dup2(answers, 4)
    browser = subprocess.Popen(
        ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
         "--no-first-run", "--disable-background-networking", "--disable-component-update",
         "--disable-sync", "--allow-file-access-from-files", "--remote-debugging-pipe",
         "--user-data-dir=" + profile, "about:blank"],
        pass_fds=(3, 4), preexec_fn=child_fds,
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.close(to_browser_read)
    os.close(from_browser_write)
    pending = b""
    next_id = 0
    events = []

    def receive():
        nonlocal pending
        while b"\0" not in pending:
            chunk = os.read(from_browser_read, 65536)
            if not chunk:
                raise RuntimeError("the browser closed its pipe")
            pending += chunk
        raw, pending = pending.split(b"\0", 1)
        return json.loads(raw)

    def call(method, params=None, session=None):
        nonlocal next_id
        next_id += 1
        message = {"id": next_id, "method": method, "params": params or {}}
        if session:
            message["sessionId"] = session
        os.write(to_browser_write, json.dumps(message).encode() + b"\0")
        while True:
            answer = receive()
            if answer.get("id") == next_id:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]
            if "method" in answer:
                events.append(answer["method"])

    def wait_for(event):
        while event not in events:
            message = receive()
            if "method" in message:
                events.append(message["method"])

    try:
        target = call("Target.createTarget", {"url": "about:blank"})["targetId"]
        session = call("Target.attachToTarget", {"targetId": target, "flatten": True})["sessionId"]
        call("Page.enable", session=session)
        call("Page.navigate", {"url": "file://" + page}, session)
        wait_for("Page.loadEventFired")
        waiting = ("new Promise((resolve, reject) => {"
                   f" const give_up = setTimeout(() => reject('no result within {limit} s'), {limit * 1000});"
                   " const look = () => window.result"
                   "   ? window.result.then(value => { clearTimeout(give_up); resolve(value); }, reject)"
                   "   : setTimeout(look, 50);"
                   " look(); })")
        answer = call("Runtime.evaluate", {"expression": waiting, "awaitPromise": True,
                                           "returnByValue": True}, session)
        if "exceptionDetails" in answer:
            print("error " + json.dumps(answer["exceptionDetails"].get("exception", {}).get("value")))
            return 1
        print(answer["result"].get("value"))
        return 0
    finally:
        try:
            call("Browser.close")
        except Exception:
            pass
        browser.wait(timeout=10)


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/python3
"""A stand-in for the Anthropic Messages API on 127.0.0.1, answering from a script.

Prints the port it listens on as its first line of output, then serves until killed.

The script decides what the agent does:

    {"replies": {"run the tool": [
                     {"tool_use": {"name": "Bash", "input": {"command": "echo hi"}}},
                     {"text": "Done."}]},
     "default": {"text": "OK."}}

A request's reply follows from its last user message. When that message's text contains a
key of "replies", the key's first reply answers; when it holds only tool results, the turn
goes on: the latest user message containing a key chooses the list, and the number of
assistant messages since then chooses the reply in it. Anything else, past the end of a list,
a request without tools (the client's side calls: titles, summaries) or one whose tools lack
the tool a reply would use, gets "default". Because the reply depends on the conversation
alone, the client's retries and side calls never shift it.

A reply is {"text": ...}, {"tool_use": {"name", "input"}} or a list of them under "tool_uses"
(with an optional "text" before them), or {"status": 529} for an HTTP error; "delay" waits that
many seconds first. In a tool's input, "{plan_file}" stands for the plan file that the client
names in plan mode, where a model writes its plan before asking to leave plan mode. Every
request is logged as one JSON line: path, model, stream, whether it was the conversation, the
reply's kind, the last user message's text and its tool results.
"""

import argparse
import http.server
import itertools
import json
import os
import pathlib
import re
import threading
import time

ERROR_TYPES = {
    400: "invalid_request_error",
    401: "authentication_error",
    403: "permission_error",
    404: "not_found_error",
    413: "request_too_large",
    429: "rate_limit_error",
    500: "api_error",
    529: "overloaded_error",
}


# Where the client's plan-mode reminder tells the model to keep its plan.
PLAN_FILE = re.compile(r'/[^\s"\\]+/plans/[^\s/"\\]+\.md')


def blocks(message):
    content = message.get("content", "")
    return [{"type": "text", "text": content}] if isinstance(content, str) else content


def text_of(message):
    return "\n".join(b.get("text", "") for b in blocks(message) if b.get("type") == "text")


def tool_results_of(message):
    """The text the client gave back for each tool, as the model reads it."""
    results = []
    for b in blocks(message):
        if b.get("type") != "tool_result":
            continue
        content = b.get("content", "")
        results.append(content if isinstance(content, str) else text_of({"content": content}))
    return results


def only_tool_results(message):
    kinds = {b.get("type") for b in blocks(message)}
    return bool(kinds) and kinds <= {"tool_result"}


class Script:
    """The replies, read again from the file for each request so that a test may change them."""

    def __init__(self, path):
        self.path = path
        self.replies = {}
        self.default = {}

    def load(self):
        data = json.loads(self.path.read_text())
        self.replies = data.get("replies", {})
        self.default = data.get("default", {"text": "OK."})

    def key_in(self, message):
        """The key found last in the message's text: the client joins consecutive user messages."""
        text = text_of(message)
        found = [(text.rfind(key), key) for key in self.replies if key in text]
        return max(found)[1] if found else None

    def reply(self, request):
        """The reply to a request, and whether it was taken as the conversation."""
        messages = request.get("messages", [])
        users = [i for i, m in enumerate(messages) if m.get("role") == "user"]
        if not users or not request.get("tools"):
            return self.default, False
        last = users[-1]
        if (key := self.key_in(messages[last])) is not None:
            chosen = self.replies[key][0] if self.replies[key] else self.default
            return self.usable(chosen, request)
        if not only_tool_results(messages[last]):
            return self.default, False
        for start in reversed(users):
            if (key := self.key_in(messages[start])) is not None:
                done = sum(1 for m in messages[start:] if m.get("role") == "assistant")
                replies = self.replies[key]
                return self.usable(replies[done] if done < len(replies) else self.default, request)
        return self.default, False

    def usable(self, reply, request):
        offered = {t.get("name") for t in request.get("tools", [])}
        wanted = {u["name"] for u in tool_uses(reply)}
        return (reply, True) if wanted <= offered else (self.default, False)


def tool_uses(reply):
    return reply.get("tool_uses", [reply["tool_use"]] if "tool_use" in reply else [])


class Replies:
    """Content blocks and ids for replies; ids unique across the server's life."""

    ids = itertools.count(1)

    @classmethod
    def content(cls, reply, request):
        content = [{"type": "text", "text": reply["text"]}] if "text" in reply else []
        for use in tool_uses(reply):
            content.append(
                {
                    "type": "tool_use",
                    "id": "toolu_stand_in_%06d" % next(cls.ids),
                    "name": use["name"],
                    "input": with_plan_file(use.get("input", {}), request),
                }
            )
        return content or [{"type": "text", "text": ""}]

    @classmethod
    def message(cls, model, content):
        return {
            "id": "msg_stand_in_%06d" % next(cls.ids),
            "type": "message",
            "role": "assistant",
            "model": model,
            "content": content,
            "stop_reason": "tool_use" if any(b["type"] == "tool_use" for b in content) else "end_turn",
            "stop_sequence": None,
            "usage": {
                "input_tokens": 10,
                "output_tokens": 10,
                "cache_creation_input_tokens": 0,
                "cache_read_input_tokens": 0,
            },
        }


def with_plan_file(value, request):
    """`value` with "{plan_file}" in its strings replaced by the plan file the request names."""
    text = json.dumps(value)
    if "{plan_file}" not in text:
        return value
    named = PLAN_FILE.findall(json.dumps(request))
    return json.loads(text.replace("{plan_file}", named[-1] if named else ""))


def stream_events(message):
    """The server-sent events that stream `message`."""
    start = dict(message, content=[], stop_reason=None)
    yield "message_start", {"type": "message_start", "message": start}
    for index, block in enumerate(message["content"]):
        if block["type"] == "text":
            yield "content_block_start", {
                "type": "content_block_start",
                "index": index,
                "content_block": {"type": "text", "text": ""},
            }
            delta = {"type": "text_delta", "text": block["text"]}
        else:
            yield "content_block_start", {
                "type": "content_block_start",
                "index": index,
                "content_block": dict(block, input={}),
            }
            delta = {"type": "input_json_delta", "partial_json": json.dumps(block["input"])}
        yield "content_block_delta", {"type": "content_block_delta", "index": index, "delta": delta}
        yield "content_block_stop", {"type": "content_block_stop", "index": index}
    yield "message_delta", {
        "type": "message_delta",
        "delta": {"stop_reason": message["stop_reason"], "stop_sequence": None},
        "usage": {"output_tokens": message["usage"]["output_tokens"]},
    }
    yield "message_stop", {"type": "message_stop"}


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "stand-in"

    def log_message(self, *args):
        pass

    def body(self):
        length = int(self.headers.get("Content-Length") or 0)
        raw = self.rfile.read(length) if length else b""
        try:
            return json.loads(raw or b"{}")
        except ValueError:
            return {}

    def record(self, entry, request=None):
        self.server.record(dict(entry, t=int(time.time() * 1000), method=self.command, path=self.path), request)

    def send_json(self, status, value, headers=()):
        data = json.dumps(value).encode()
        self.send_response(status)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(data)))
        self.send_header("request-id", "req_stand_in")
        for name, content in headers:
            self.send_header(name, content)
        self.end_headers()
        self.wfile.write(data)

    def do_POST(self):
        request = self.body()
        path = self.path.split("?")[0]
        if path == "/v1/messages":
            return self.messages(request)
        self.record({}, request)
        if path == "/v1/messages/count_tokens":
            return self.send_json(200, {"input_tokens": 100})
        self.send_json(200, {})

    def do_GET(self):
        self.record({})
        if self.path.split("?")[0] == "/v1/models":
            return self.send_json(200, {"data": [], "has_more": False, "first_id": None, "last_id": None})
        self.send_json(200, {})

    def do_HEAD(self):
        self.record({})
        self.send_response(200)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def do_CONNECT(self):
        # Reached only through the proxy variables: an address other than the stand-in's.
        self.record({})
        self.send_error(403)

    def messages(self, request):
        with self.server.lock:
            self.server.script.load()
            reply, conversation = self.server.script.reply(request)
        messages = request.get("messages", [])
        last_user = next((m for m in reversed(messages) if m.get("role") == "user"), {})
        self.record(
            {
                "model": request.get("model"),
                "stream": bool(request.get("stream")),
                "conversation": conversation,
                "reply": sorted(reply),
                "last_user": text_of(last_user)[-300:],
                "tool_results": [result[-300:] for result in tool_results_of(last_user)],
                "tools": len(request.get("tools") or []),
            },
            request,
        )
        time.sleep(reply.get("delay", 0))
        if "status" in reply:
            status = reply["status"]
            kind = ERROR_TYPES.get(status, "api_error")
            error = {"type": "error", "error": {"type": kind, "message": reply.get("message", kind)}}
            return self.send_json(status, error, [("x-should-retry", "true")])
        message = Replies.message(request.get("model", "stand-in"), Replies.content(reply, request))
        if not request.get("stream"):
            return self.send_json(200, message)
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Cache-Control", "no-cache")
        self.send_header("Connection", "close")
        self.send_header("request-id", "req_stand_in")
        self.end_headers()
        self.close_connection = True
        for event, data in stream_events(message):
            self.wfile.write(("event: %s\ndata: %s\n\n" % (event, json.dumps(data))).encode())
            self.wfile.flush()


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def __init__(self, script, log, bodies):
        super().__init__(("127.0.0.1", 0), Handler)
        self.script = script
        self.log = log
        self.bodies = bodies
        self.lock = threading.Lock()
        self.count = 0

    def record(self, entry, request):
        with self.lock:
            self.count += 1
            if self.bodies and request is not None:
                (self.bodies / ("%04d.json" % self.count)).write_text(json.dumps(request, indent=1))
            if self.log:
                with open(self.log, "a") as out:
                    out.write(json.dumps(dict(entry, n=self.count)) + "\n")


def main():
    parser = argparse.ArgumentParser(description="A stand-in for the Messages API on 127.0.0.1.")
    parser.add_argument("script", type=pathlib.Path, help="the JSON script of replies")
    parser.add_argument("--log", help="append one JSON line per request to this file")
    parser.add_argument("--bodies", type=pathlib.Path, help="save each request's body in this folder")
    args = parser.parse_args()
    if args.bodies:
        args.bodies.mkdir(parents=True, exist_ok=True)
    server = Server(Script(args.script), args.log, args.bodies)
    print(server.server_address[1], flush=True)
    threading.Thread(target=exit_with_parent, args=(os.getppid(),), daemon=True).start()
    server.serve_forever()


def exit_with_parent(parent):
    """Ends the server once the test that started it is gone, even killed without cleaning up."""
    while os.getppid() == parent:
        time.sleep(1)
    os._exit(0)


if __name__ == "__main__":
    main()

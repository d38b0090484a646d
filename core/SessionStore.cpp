#include "core/SessionStore.h"

#include <utility>

namespace norrow {

bool SessionStore::begin(const HookEvent& event, std::optional<std::string> frontmost,
                         TimePoint now) {
    if (!event.promptId) return false;
    OpenTurn turn{*event.promptId,     event.sessionId, event.cwd, event.prompt, now,
                  std::move(frontmost)};
    const std::lock_guard guard(lock_);
    // A session has one turn at a time: a new prompt supersedes one whose end never came
    // (interrupted, or answered by nothing), so open turns are bounded by live sessions.
    if (turn.sessionId)
        std::erase_if(open_, [&](const auto& entry) {
            return entry.second.sessionId == turn.sessionId && entry.first != turn.promptId;
        });
    open_.insert_or_assign(turn.promptId, std::move(turn));
    return true;
}

std::optional<SessionStore::Finished> SessionStore::finish(const HookEvent& event, TimePoint now) {
    if (!event.promptId) return std::nullopt;
    std::unordered_map<std::string, OpenTurn>::node_type node;
    {
        const std::lock_guard guard(lock_);
        node = open_.extract(*event.promptId);
    }
    if (!node) return std::nullopt;
    const Seconds duration = now - node.mapped().startedAt;
    return Finished{std::move(node.mapped()), duration};
}

std::optional<SessionStore::OpenTurn>
SessionStore::peek(const std::optional<std::string>& promptId) const {
    if (!promptId) return std::nullopt;
    const std::lock_guard guard(lock_);
    const auto found = open_.find(*promptId);
    if (found == open_.end()) return std::nullopt;
    return found->second;
}

bool SessionStore::restart(const std::optional<std::string>& promptId,
                           std::optional<std::string> frontmost, TimePoint now) {
    if (!promptId) return false;
    const std::lock_guard guard(lock_);
    const auto found = open_.find(*promptId);
    if (found == open_.end()) return false;
    found->second.startedAt = now;
    found->second.frontmostAtStart = std::move(frontmost);
    return true;
}

std::size_t SessionStore::sweep(TimePoint now) {
    const std::lock_guard guard(lock_);
    return std::erase_if(open_, [&](const auto& entry) {
        return !(Seconds(now - entry.second.startedAt) < staleAfter_);
    });
}

std::size_t SessionStore::openCount() const {
    const std::lock_guard guard(lock_);
    return open_.size();
}

} // namespace norrow

#include "Kernel.h"

#include <algorithm>

#include "World.h"

namespace simulated {

void Source::Notify(const zyl::backbone::system::Readiness& news) {
    pending.input = pending.input || news.input;
    pending.room = pending.room || news.room;
    pending.end = pending.end || news.end;
    if (watcher != nullptr && !queued && (pending.input || pending.room || pending.end)) {
        queued = true;
        owner->alerts.push_back(this);
    }
}

std::pair<End*, End*> Kernel::Connect() {
    End& one = m_ends.emplace_back();
    End& other = m_ends.emplace_back();
    one.number = static_cast<int>(m_ends.size()) - 1;
    other.number = one.number + 1;
    one.other = &other;
    other.other = &one;
    return {&one, &other};
}

Listener& Kernel::Listen(const std::string& domain, Process& owner) {
    Listener& listener = m_listeners[domain].emplace_back();
    listener.owner = &owner;
    listener.identity = owner.self.identity;
    return listener;
}

Listener* Kernel::Find(const std::string& domain, const zyl::backbone::system::Identity& identity) {
    for (Listener& listener : m_listeners[domain]) {
        if (listener.identity == identity && listener.copies > 0) {
            return &listener;
        }
    }
    return nullptr;
}

Slot& Kernel::SlotOf(const std::string& domain, const std::string& name) {
    Slot& slot = m_slots[domain][name];
    slot.name = name;
    return slot;
}

Pages& Kernel::Make(std::size_t size) {
    return m_pages.emplace_back(Pages{std::make_unique<char[]>(size), size});
}

std::vector<Handle> Kernel::HandlesOf(const Process& process) {
    std::vector<Handle> handles;
    for (End& end : m_ends) {
        if (end.owner == &process && end.copies > 0) {
            handles.emplace_back(&end);
        }
    }
    for (auto& [domain, listeners] : m_listeners) {
        for (Listener& listener : listeners) {
            if (listener.owner == &process && listener.copies > 0) {
                handles.emplace_back(&listener);
            }
        }
    }
    for (auto& [domain, slots] : m_slots) {
        for (auto& [name, slot] : slots) {
            if (slot.holder == &process) {
                handles.emplace_back(&slot);
            }
        }
    }
    return handles;
}

std::size_t Kernel::CountOfChannels(const Process& process) const {
    return static_cast<std::size_t>(std::ranges::count_if(
        m_ends, [&](const End& end) { return end.owner == &process && end.copies > 0; }));
}

bool Kernel::IsHeldUp(const Process& process) const {
    return std::ranges::any_of(m_ends,
                               [&](const End& end) { return end.owner == &process && end.wantsRoom; });
}

const char* Kernel::KindOf(const Handle& handle) {
    return std::holds_alternative<End*>(handle)        ? "channel"
           : std::holds_alternative<Listener*>(handle) ? "listener"
                                                       : "claim";
}

std::string Kernel::Where(const void* word) const {
    for (std::size_t index = 0; index < m_pages.size(); ++index) {
        const std::ptrdiff_t offset = static_cast<const char*>(word) - m_pages[index].bytes.get();
        if (offset >= 0 && static_cast<std::size_t>(offset) < m_pages[index].size) {
            return fmt::format("{}:{}", static_cast<char>('m' + index), offset);
        }
    }
    return "nowhere";
}

void Kernel::Copy(const Handle& handle) {
    if (auto* const* end = std::get_if<End*>(&handle)) {
        ++(*end)->copies;
    } else if (auto* const* listener = std::get_if<Listener*>(&handle)) {
        ++(*listener)->copies;
    }
}

void Kernel::Close(const Handle& handle) {
    if (auto* const* end = std::get_if<End*>(&handle)) {
        Close(**end);
    } else if (auto* const* listener = std::get_if<Listener*>(&handle)) {
        Close(**listener);
    } else {
        std::get<Slot*>(handle)->holder = nullptr;
    }
}

void Kernel::Close(End& end) {
    if (--end.copies == 0) {
        end.bytes.clear();
        end.other->Notify({.input = true, .room = true, .end = true});
    }
}

void Kernel::Close(Listener& listener) {
    if (--listener.copies == 0) {
        for (End* end : listener.queue) {
            Close(*end);
        }
        listener.queue.clear();
    }
}

}  // namespace simulated

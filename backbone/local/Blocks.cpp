#include "Blocks.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>

#include "Frame.h"

namespace zyl::backbone::local {

namespace {

/// Steps of an eighth of the size, so that a block serves for the next message too if that is a little
/// longer.
std::size_t Rounded(std::size_t size) {
    const std::size_t step = std::max(std::bit_floor(size) / 8, std::size_t{1});
    return (size + step - 1) / step * step;
}

}  // namespace

Blocks::~Blocks() {
    while (!m_blocks.empty()) {
        Drop(m_blocks.end() - 1);
    }
}

std::optional<Blocks::Block*> Blocks::Reserve(std::size_t size, std::vector<std::uint32_t>& dropped) {
    const auto fits = [&](const Block& block) {
        return block.state != Block::State::kBusy && block.memory->Bytes().size() >= size;
    };
    const auto found = std::find_if(m_blocks.begin(), m_blocks.end(), fits);
    if (found != m_blocks.end()) {
        return &*found;
    }
    if (m_blocks.size() == m_most) {
        const auto tooSmall = std::find_if(m_blocks.begin(), m_blocks.end(), [](const Block& block) {
            return block.state != Block::State::kBusy;
        });
        if (tooSmall == m_blocks.end()) {
            return nullptr;
        }
        if (tooSmall->state == Block::State::kFree) {
            dropped.push_back(tooSmall->number);
        }
        Drop(tooSmall);
    }
    std::shared_ptr<system::Memory> memory = m_system.MakeMemory(Rounded(size));
    if (memory == nullptr) {
        return std::nullopt;
    }
    m_blocks.push_back({++m_lastNumber, std::move(memory)});
    return &m_blocks.back();
}

Blocks::Block& Blocks::At(std::uint32_t number) {
    return *std::find_if(m_blocks.begin(), m_blocks.end(),
                         [&](const Block& block) { return block.number == number; });
}

void Blocks::HandedOver(Block& block) {
    block.state = Block::State::kFree;
    m_kept.bytes += block.memory->Bytes().size();
}

void Blocks::Use(Block& block) {
    block.state = Block::State::kBusy;
    m_kept.bytes -= block.memory->Bytes().size();
}

bool Blocks::Free(std::uint32_t number) {
    const auto block = Busy(number);
    const std::size_t size = block->memory->Bytes().size();
    if (m_kept.bytes + size > m_kept.limit) {
        Drop(block);
        return true;
    }
    block->state = Block::State::kFree;
    m_kept.bytes += size;
    return false;
}

void Blocks::Keep(std::uint32_t number) {
    Drop(Busy(number));
}

std::vector<Blocks::Block>::iterator Blocks::Busy(std::uint32_t number) {
    const auto found = std::find_if(m_blocks.begin(), m_blocks.end(), [&](const Block& block) {
        return block.number == number && block.state == Block::State::kBusy;
    });
    if (found == m_blocks.end()) {
        throw BadFrame(fmt::format("the listener is done with block {}, which is not under way", number));
    }
    return found;
}

void Blocks::Drop(std::vector<Block>::iterator block) {
    if (block->state == Block::State::kFree) {
        m_kept.bytes -= block->memory->Bytes().size();
    }
    m_blocks.erase(block);
}

}  // namespace zyl::backbone::local

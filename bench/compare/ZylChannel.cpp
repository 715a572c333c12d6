#include <algorithm>
#include <cstring>

#include "Channel.h"
#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgBBMessageHandler.h"
#include "ZYLMsgFileTransferType.h"
#include "ZYLMsgStringType.h"
#include "mem_Allocation.h"

namespace {

/// This project as an application uses it: typed messages through the callback manager, a clone and a handler
/// for each that comes. The kind "zyl record" carries the bytes as the chunk of a file-transfer message, else
/// they are a string message.
class ZylChannel final : public Channel {
  public:
    explicit ZylChannel(const Setup& setup)
        : m_peer(setup.peer),
          m_record(setup.kind == "zyl record"),
          m_chunk(static_cast<char*>(mem_OperatorNewThrowBuiltin(std::max(setup.size, setup.answer)))) {
        ZYLMsgBBAPI::RegisterCommunicator("bench", m_communicator);
        ZYLMsgBBAPI::DeclareApplicationId(m_communicator, setup.self.c_str(), true);
        const std::string identifier =
            setup.identifier < 0 ? setup.self : std::string(static_cast<std::size_t>(setup.identifier), 'i');
        ZYLMsgBBCallbackManager::SetMessageID(identifier.c_str());
        if (m_record) {
            m_fileMessage.Data().m_dataType = FILE_TRANSFER_CHUNK;
            m_fileMessage.Data().m_chunk = m_chunk.get();
            ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgFileTransferType, new Handler(*this));
        } else {
            ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgStringType, new Handler(*this));
        }
        ZYLMsgBBAPI::EnableReceiveHandling(m_communicator, setup.self.c_str());
    }

    void Send(const std::vector<char>& message) override {
        if (m_record) {
            std::memcpy(m_chunk.get(), message.data(), message.size());  // as reading the file fills it
            m_fileMessage.Data().m_chunkSize = static_cast<int>(message.size());
            ZYLMsgBBAPI::SendRequest(m_communicator, m_peer.c_str(), m_fileMessage);
        } else {
            m_stringMessage.SetData(message.data(), static_cast<int>(message.size()));
            ZYLMsgBBAPI::SendRequest(m_communicator, m_peer.c_str(), m_stringMessage);
        }
    }

    void Receive(std::size_t count, const Each& each) override {
        m_awaited = count;
        m_each = &each;
        int condition = -1;
        m_condition = &condition;
        ZYLMsgBBAPI::WaitingLoop(m_communicator, -1, condition);
    }

  private:
    struct Free {
        void operator()(char* block) const { mem_Free(block); }
    };

    class Handler final : public ZYLMsgBBMessageHandler {
      public:
        explicit Handler(ZylChannel& channel) : m_channel(channel) {}
        void HandleMessage(const ZYLMsgBBMessage& message, const char* /*id*/) override {
            m_channel.Received(message);
        }

      private:
        ZylChannel& m_channel;
    };

    std::span<const char> BytesOf(const ZYLMsgBBMessage& message) const {
        if (m_record) {
            const ZYLMsgFileTransferData& data = static_cast<const ZYLMsgFileTransferType&>(message).Data();
            return {static_cast<const char*>(data.m_chunk), static_cast<std::size_t>(data.m_chunkSize)};
        }
        const auto& text = static_cast<const ZYLMsgStringType&>(message);
        return {text.Data(), static_cast<std::size_t>(text.Size())};
    }

    void Received(const ZYLMsgBBMessage& message) {
        (*m_each)(BytesOf(message));
        if (--m_awaited == 0) {
            *m_condition = 0;
        }
    }

    ZYLMsgBBCallbackManager m_emptiesTheRegistriesAtItsEnd;
    std::string m_peer;
    bool m_record;
    std::unique_ptr<char, Free> m_chunk;  // where the file-transfer engine has its bytes, too
    int m_communicator = 0;
    ZYLMsgStringType m_stringMessage;
    ZYLMsgFileTransferType m_fileMessage;
    std::size_t m_awaited = 0;
    const Each* m_each = nullptr;
    int* m_condition = nullptr;
};

}  // namespace

std::unique_ptr<Channel> OpenZylChannel(const Channel::Setup& setup) {
    return std::make_unique<ZylChannel>(setup);
}

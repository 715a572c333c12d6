#ifndef ZYL_TESTS_UTILS_FILETRANSFERFIXTURE_H
#define ZYL_TESTS_UTILS_FILETRANSFERFIXTURE_H

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <string>

#include "FakeBackbone.h"
#include "MemoryStream.h"
#include "TemporaryDirectory.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgFileTransfer.h"
#include "ZYLMsgFileTransferHandler.h"
#include "ZYLMsgFileTransferType.h"

using Operation = int (ZYLMsgFileTransfer::*)(const char*, const char*, const char*, const char*, const char*,
                                              const char*, const char*, const char*);
constexpr Operation kSendFile = &ZYLMsgFileTransfer::SendFile;
constexpr Operation kISendFile = &ZYLMsgFileTransfer::ISendFile;
constexpr Operation kReceiveFile = &ZYLMsgFileTransfer::ReceiveFile;

inline void Write(const std::string& path, const std::string& bytes) {
    std::ofstream(path) << bytes;
}

inline std::string Read(const std::string& path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path).rdbuf();
    return bytes.str();
}

/// Bytes in which no two chunks are alike.
inline std::string Pattern(size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 131 + i / 251);
    }
    return bytes;
}

inline std::ptrdiff_t OpenDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}

/// An application: its engine, handler and log, and the base directory in which its job lies.
struct Application {
    Application(const std::string& base, int verbosity) : m_base(base), m_engine(1, m_log.Get(), verbosity) {
        std::filesystem::create_directories(base + "/job");
    }
    bool IsIdle() const {
        return m_engine.m_fileId == -1 && m_engine.m_contentMsg->Data().m_chunkId == 0 &&
               m_engine.m_receiveFileMap.size() == 0 && m_engine.m_receiveFileChunkIdMap.size() == 0 &&
               m_engine.m_receptionMap.size() == 0;
    }

    std::string m_base;
    MemoryStream m_log;
    ZYLMsgFileTransfer m_engine;
    ZYLMsgFileTransferHandler m_handler{&m_engine};
};

/// Several applications in one process. Messages pass through the callback manager, in the order sent, while
/// an engine waits and in Deliver; what an application sends bears its name.
class FileTransfer : public testing::Test {
  public:
    FileTransfer() {
        m_backbone = {};
        m_backbone.onSend = [this](const FakeBackbone::Message& message) {
            m_backbone.script.push_back([this, message] { Dispatch(message); });
        };
        ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(new ZYLMsgFileTransferType, new Dispatcher(*this));
    }
    ~FileTransfer() override {
        ZYLMsgBBCallbackManager emptiesTheRegistries;
        ZYLMsgBBCallbackManager::SetMessageID("");
    }

  protected:
    struct Dispatcher : ZYLMsgBBMessageHandler {
        explicit Dispatcher(FileTransfer& test) : m_test(test) {}
        void HandleMessage(const ZYLMsgBBMessage& message, const char* id) override {
            m_test.m_receiver->m_handler.HandleMessage(message, id);
        }
        FileTransfer& m_test;
    };

    Application& Add(const std::string& name, int verbosity = 0) {
        return *(m_applications[name] = std::make_unique<Application>(m_directory / name, verbosity));
    }

    void Dispatch(const FakeBackbone::Message& message) {
        const ZYLString before = ZYLMsgBBCallbackManager::m_messageID;
        m_receiver = m_applications.at(message.target).get();
        ZYLMsgBBCallbackManager::SetMessageID(message.target.c_str());
        ZYLMsgBBCallbackManager::HandleMessage(message.type.c_str(), message.bytes.data(),
                                               static_cast<int>(message.bytes.size()));
        ZYLMsgBBCallbackManager::m_messageID = before;
    }

    void Deliver() {
        for (; !m_backbone.script.empty(); m_backbone.script.pop_front()) {
            m_backbone.script.front()();
        }
    }

    /// The engine of the application `name`, which now acts.
    ZYLMsgFileTransfer& As(const std::string& name) {
        ZYLMsgBBCallbackManager::SetMessageID(name.c_str());
        return m_applications.at(name)->m_engine;
    }

    /// Copies the file `in` of S's job to `out` of T's and delivers what is under way.
    void Run(Operation operation, const std::string& in = "in", const std::string& out = "out") {
        ZYLMsgFileTransfer& engine = As(operation == kReceiveFile ? "T" : "S");
        EXPECT_EQ((engine.*operation)("S", (m_directory / "S").c_str(), "job", in.c_str(), "T",
                                      (m_directory / "T").c_str(), "job", out.c_str()),
                  0);
        EXPECT_TRUE(operation == kISendFile || m_backbone.script.empty()) << "returned before the end";
        Deliver();
        EXPECT_TRUE(m_applications.at("S")->IsIdle() && m_applications.at("T")->IsIdle());
    }
    std::string In() const { return m_directory / "S/job/in"; }
    std::string Out() const { return m_directory / "T/job/out"; }

    /// The messages sent since the last call, each as "<target>:<code>", with "#<number>x<size>" for a chunk.
    std::string TakeSteps() {
        std::ostringstream steps;
        for (const auto& [communicator, target, type, bytes] : m_backbone.sent) {
            ZYLMsgFileTransferType message;
            message.Unstream(bytes.data() + 5,
                             static_cast<int>(bytes.size()) - 5);  // identifiers have one byte
            const ZYLMsgFileTransferData& data = message.Data();
            steps << target << ':' << data.m_dataType;
            if (data.m_chunkId != -1 || data.m_chunkSize != 0) {
                steps << '#' << data.m_chunkId << 'x' << data.m_chunkSize;
            }
            steps << ' ';
        }
        m_backbone.sent.clear();
        return steps.str();
    }

    /// A text without the test's directory.
    std::string Bare(const std::string& text) const {
        return std::regex_replace(text, std::regex(m_directory.Path().string()), "");
    }

    /// What an application's engine says of its last transfer: "ok" or the failure, and the bytes.
    std::string Outcome(const std::string& name) const {
        const auto& [ok, text, bytes] = m_applications.at(name)->m_engine.LastOutcome();
        EXPECT_EQ(ok, text.IsEmpty());
        return (ok ? "ok" : Bare(text.GetUTF8())) + " after " + std::to_string(bytes);
    }

    /// An application's log without what differs from run to run.
    std::string Log(const std::string& name) {
        const std::string log = Bare(m_applications.at(name)->m_log.Text());
        return std::regex_replace(log, std::regex("fileId [0-9]+"), "fileId ");
    }

    const TemporaryDirectory m_directory;
    FakeBackbone& m_backbone = FakeBackbone::Get();
    std::map<std::string, std::unique_ptr<Application>> m_applications;
    Application* m_receiver = nullptr;
};

#endif

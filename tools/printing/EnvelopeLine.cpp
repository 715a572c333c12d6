#include "EnvelopeLine.h"

#include <fmt/format.h>

#include <array>
#include <filesystem>
#include <optional>
#include <utility>

#include "MessageLine.h"
#include "QORText.h"
#include "WireBytes.h"
#include "ZYLBasXmlDocument.h"
#include "ZYLMsgFileTransferData.h"

namespace {

/// How many bytes of an unknown message are shown: enough to recognise its kind.
constexpr std::size_t kFirstBytes = 16;

std::string FirstBytes(std::string_view body) {
    if (body.empty()) {
        return "no bytes";
    }
    std::string text = "first bytes";
    for (const char byte : body.substr(0, kFirstBytes)) {
        text += fmt::format(" {:02x}", static_cast<unsigned char>(byte));
    }
    text += body.size() > kFirstBytes ? " ..." : "";
    return text;
}

/// The kind of a kill request; nothing for any other document.
std::optional<std::string> KillKind(std::string_view document) {
    ZYLBasXmlDocument xml;
    ZYLBasXmlNode root;
    if (xml.ReadBytes(document.data(), document.size()) != S_OK || xml.GetDom(root) != S_OK) {
        return std::nullopt;
    }
    ZYLString name;
    ZYLString value;
    root.GetTagName(name);
    root.GetValue(value);
    const bool isKind = name == "Kill" && (value == "SOFT_KILL" || value == "HARD_KILL");
    return isKind ? std::optional<std::string>(value.GetUTF8()) : std::nullopt;
}

std::optional<std::string> DocumentText(std::string_view body) {
    WireBytes bytes(body);
    const std::optional<std::string_view> document = bytes.String();
    return document ? std::optional(Content(*document)) : std::nullopt;
}

std::optional<std::string> KillText(std::string_view body) {
    WireBytes bytes(body);
    const std::optional<std::string_view> document = bytes.String();
    const std::optional<std::string> kind = document ? KillKind(*document) : std::nullopt;
    return kind ? kind : DocumentText(body);
}

std::string StepName(int step) {
    switch (step) {
        case FILE_TRANSFER_SEND_REQUEST:
            return "wants a file";
        case FILE_TRANSFER_RECEIVE_REQUEST:
            return "a file follows";
        case FILE_TRANSFER_CHUNK:
            return "chunk";
        case FILE_TRANSFER_SEND_COMPLETION:
            return "the file is complete, to be confirmed";
        case FILE_TRANSFER_ISEND_COMPLETION:
            return "the file is complete";
        case FILE_TRANSFER_RECEIVE_COMPLETION:
            return "confirms the file";
        default:
            return fmt::format("unknown step {}", step);
    }
}

/// One side of a transfer: its application and the given parts of the file's name. Empty if all of them
/// are.
std::string SideText(const char* side, const std::array<std::string_view, 4>& strings) {
    std::filesystem::path file;
    for (const std::string_view part : {strings[1], strings[2], strings[3]}) {
        if (!part.empty()) {
            file /= part;
        }
    }
    const std::string application =
        strings[0].empty() ? "" : fmt::format(" {}", QORText::Printable(strings[0]));
    const std::string name = file.empty() ? "" : fmt::format(" {}", QORText::Quoted(file.string()));
    return application.empty() && name.empty() ? "" : fmt::format(", {}{}{}", side, application, name);
}

bool IsCompletion(int step) {
    return step == FILE_TRANSFER_SEND_COMPLETION || step == FILE_TRANSFER_ISEND_COMPLETION ||
           step == FILE_TRANSFER_RECEIVE_COMPLETION;
}

/// The reason of a failed transfer. The sender has escaped it, so backslashes are not escaped again.
std::string ReasonText(std::string_view reason) {
    std::string text = QORText::Printable(reason, kShownBytes);
    for (std::size_t at = 0; (at = text.find("\\\\", at)) != std::string::npos; ++at) {
        text.erase(at, 1);
    }
    return text;
}

std::optional<std::string> FileTransferText(std::string_view body) {
    WireBytes bytes(body);
    const std::optional<int> step = bytes.Int();
    std::array<std::string_view, 8> strings;
    for (std::string_view& string : strings) {
        const std::optional<std::string_view> next = bytes.String();
        if (!next) {
            return std::nullopt;
        }
        string = *next;
    }
    const std::optional<int> chunk = bytes.Int();
    const std::optional<int> size = bytes.Int();
    if (!step || !chunk || !size) {
        return std::nullopt;
    }
    std::string text = StepName(*step);
    if (*step == FILE_TRANSFER_CHUNK) {
        text += fmt::format(" {} of {} bytes", *chunk, *size);
    }
    if (IsCompletion(*step) && !strings[7].empty()) {
        text += fmt::format("; it failed: {}", ReasonText(std::exchange(strings[7], {})));
    }
    return fmt::format("{}{}{}", text, SideText("from", {strings[0], strings[1], strings[2], strings[3]}),
                       SideText("to", {strings[4], strings[5], strings[6], strings[7]}));
}

std::string BodyText(std::string_view type, std::string_view body) {
    std::optional<std::string> text;
    if (type == "ZYLMsgStringType") {
        text = Content(body);
    } else if (type == "ZYLMsgAnalysisMessageType") {
        text = DocumentText(body);
    } else if (type == "ZYLMsgProcessControlType") {
        text = KillText(body);
    } else if (type == "ZYLMsgFileTransferType") {
        text = FileTransferText(body);
    }
    return text.value_or(FirstBytes(body));
}

}  // namespace

std::string EnvelopeLine(std::string_view type, std::string_view envelope) {
    WireBytes bytes(envelope);
    const std::optional<std::string_view> sender = bytes.String();
    return sender ? MessageLine(*sender, type, bytes.Left().size(), BodyText(type, bytes.Left()))
                  : MessageLine("?", type, envelope.size(),
                                fmt::format("no proper envelope, {}", FirstBytes(envelope)));
}

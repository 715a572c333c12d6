// The relay of a small analysis: forwards every string message to the monitor, and leaves with the solver.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "ZYLMsgBBAPI.h"
#include "ZYLMsgBBCallbackManager.h"
#include "ZYLMsgFwdHandler.h"
#include "ZYLMsgSimpleDisconnectHandler.h"
#include "ZYLMsgStringType.h"

int main(int argc, char** argv) try {
    std::string domainName;
    CLI::App options("Forwards string messages to the monitor.");
    options.add_option("--domain", domainName, "where it meets the others: one domain for each job")
        ->required();
    CLI11_PARSE(options, argc, argv);

    // Deletes the prototypes and handlers at every exit of the process.
    static const ZYLMsgBBCallbackManager manager;
    int domain = 0;
    ZYLMsgBBAPI::RegisterCommunicator(domainName.c_str(), domain);
    ZYLMsgBBAPI::DeclareApplicationId(domain, "relay", true);
    ZYLMsgBBCallbackManager::SetMessageID("relay");
    ZYLMsgBBCallbackManager::AdoptPrototypeAndHandler(
        new ZYLMsgStringType, new ZYLMsgFwdHandler(ZYLString::BuildFromUTF8("monitor"), domain));

    ZYLMsgSimpleDisconnectHandler solver;
    solver.SetWatchApplication("solver", -1, nullptr);
    solver.SetDisconnectBehavior(ZYLMsgSimpleDisconnectHandler::e_exit);
    ZYLMsgBBCallbackManager::AssociateDisconnectHandler(&solver);

    ZYLMsgBBAPI::EnableReceiveHandling(domain, "relay");
    ZYLMsgBBAPI::EnableDisconnectHandling(domain, "relay");
    ZYLMsgBBAPI::WaitingLoop(domain, -1, solver.EndingCondition());
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return EXIT_FAILURE;
}

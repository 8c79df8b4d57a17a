// A session manager for one program. Prints the network identifier that the program's SESSION_MANAGER must name, then a
// line for each thing that happens: "registered", "asked" (it wants to talk to the user), "cancelled" (it wants the
// session to go on), "saved", "closed". Takes lines: "shutdown" (the session ends), "checkpoint" (it does not), "die".

#include <X11/ICE/ICElib.h>
#include <X11/SM/SMlib.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <utility>

// The library exports it without a header.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" void _IceTransNoListen(const char* protocol);

namespace {

SmsConn client = nullptr;

void tell(const char* what)
{
    std::printf("%s\n", what);
    std::fflush(stdout);
}

Status registerClient(SmsConn connection, SmPointer, char* previousIdentifier)
{
    char* const identifier = previousIdentifier ? previousIdentifier : SmsGenerateClientID(connection);
    SmsRegisterClientReply(connection, identifier);
    SmsSaveYourself(connection, SmSaveLocal, False, SmInteractStyleNone, False);
    std::free(identifier);
    client = connection;
    return True;
}

void interactRequest(SmsConn connection, SmPointer, int)
{
    tell("asked");
    SmsInteract(connection);
}

void interactDone(SmsConn, SmPointer, Bool isCancelled)
{
    if (isCancelled)
        tell("cancelled");
}

void saveYourselfPhase2(SmsConn connection, SmPointer)
{
    SmsSaveYourselfPhase2(connection);
}

void saveYourselfDone(SmsConn connection, SmPointer, Bool)
{
    // The first one is the answer to the registration.
    static bool isRegistered = false;
    tell(isRegistered ? "saved" : "registered");
    if (!std::exchange(isRegistered, true))
        SmsSaveComplete(connection);
}

void closeConnection(SmsConn connection, SmPointer, int count, char** reasons)
{
    SmFreeReasons(count, reasons);
    IceConn ice = SmsGetIceConnection(connection);
    SmsCleanUp(connection);
    IceSetShutdownNegotiation(ice, False);
    IceCloseConnection(ice);
    client = nullptr;
    tell("closed");
}

void setProperties(SmsConn, SmPointer, int count, SmProp** properties)
{
    for (int index = 0; index < count; ++index)
        SmFreeProperty(properties[index]);
    std::free(properties);
}

void deleteProperties(SmsConn, SmPointer, int count, char** names)
{
    for (int index = 0; index < count; ++index)
        std::free(names[index]);
    std::free(names);
}

void getProperties(SmsConn connection, SmPointer)
{
    SmsReturnProperties(connection, 0, nullptr);
}

void saveYourselfRequest(SmsConn, SmPointer, int, Bool, int, Bool, Bool) {}

Status acceptClient(SmsConn, SmPointer, unsigned long* mask, SmsCallbacks* callbacks, char**)
{
    *mask = SmsRegisterClientProcMask | SmsInteractRequestProcMask | SmsInteractDoneProcMask |
            SmsSaveYourselfRequestProcMask | SmsSaveYourselfP2RequestProcMask | SmsSaveYourselfDoneProcMask |
            SmsCloseConnectionProcMask | SmsSetPropertiesProcMask | SmsDeletePropertiesProcMask |
            SmsGetPropertiesProcMask;
    callbacks->register_client.callback = registerClient;
    callbacks->interact_request.callback = interactRequest;
    callbacks->interact_done.callback = interactDone;
    callbacks->save_yourself_request.callback = saveYourselfRequest;
    callbacks->save_yourself_phase2_request.callback = saveYourselfPhase2;
    callbacks->save_yourself_done.callback = saveYourselfDone;
    callbacks->close_connection.callback = closeConnection;
    callbacks->set_properties.callback = setProperties;
    callbacks->delete_properties.callback = deleteProperties;
    callbacks->get_properties.callback = getProperties;
    return True;
}

Bool trustEverybody(char*)
{
    return True;
}

void obey(const std::string& command)
{
    if (!client)
        return;
    if (command == "die")
        SmsDie(client);
    else
        SmsSaveYourself(client, SmSaveGlobal, command == "shutdown", SmInteractStyleAny, False);
    IceFlush(SmsGetIceConnection(client));
}

} // namespace

int main()
{
    std::array<char, 256> error{};
    std::string vendor = "test";
    std::string release = "1";
    // Nothing but sockets of this machine.
    _IceTransNoListen("tcp");
    IceListenObj* listening = nullptr;
    int count = 0;
    if (!SmsInitialize(vendor.data(), release.data(), acceptClient, nullptr, trustEverybody, error.size(),
                       error.data()) ||
        !IceListenForConnections(&count, &listening, error.size(), error.data())) {
        std::fprintf(stderr, "%s\n", error.data());
        return EXIT_FAILURE;
    }
    for (int index = 0; index < count; ++index)
        IceSetHostBasedAuthProc(listening[index], trustEverybody);
    tell(IceComposeNetworkIdList(count, listening));

    IceConn connection = nullptr;
    while (true) {
        std::array<pollfd, 8> waiting{};
        nfds_t used = 0;
        waiting[used++] = {STDIN_FILENO, POLLIN, 0};
        waiting[used++] = {connection ? IceConnectionNumber(connection) : -1, POLLIN, 0};
        for (int index = 0; index < count && used < waiting.size(); ++index)
            waiting[used++] = {IceGetListenConnectionNumber(listening[index]), POLLIN, 0};
        poll(waiting.data(), used, -1);
        if (waiting[0].revents != 0) {
            std::string command;
            if (!std::getline(std::cin, command))
                return EXIT_SUCCESS;
            obey(command);
        }
        if (waiting[1].revents != 0) {
            const IceProcessMessagesStatus status = IceProcessMessages(connection, nullptr, nullptr);
            if (status == IceProcessMessagesConnectionClosed) {
                connection = nullptr;
            } else if (status == IceProcessMessagesIOError) {
                // The program has gone without a farewell.
                IceSetShutdownNegotiation(connection, False);
                IceCloseConnection(connection);
                connection = nullptr;
                client = nullptr;
                tell("closed");
            }
        }
        for (int index = 0; index < count; ++index) {
            IceAcceptStatus status = IceAcceptSuccess;
            if (waiting.at(static_cast<std::size_t>(index) + 2).revents != 0)
                connection = IceAcceptConnection(listening[index], &status);
        }
    }
}

#include "tests/support/CScript.h"

#include <utility>

namespace support {

CScript& CScript::readUntil(std::string terminator)
{
    return add("readUntil",
        [terminator = std::move(terminator)](CScriptedConnection& connection) { connection.readUntil(terminator); });
}

CScript& CScript::readHead()
{
    return add("readHead", [](CScriptedConnection& connection) { connection.readUntil("\r\n\r\n"); });
}

CScript& CScript::readBytes(size_t count)
{
    return add("readBytes", [count](CScriptedConnection& connection) { connection.readBytes(count); });
}

CScript& CScript::readToEnd()
{
    return add("readToEnd", [](CScriptedConnection& connection) { connection.readToEnd(); });
}

CScript& CScript::send(std::string bytes)
{
    return add("send", [bytes = std::move(bytes)](CScriptedConnection& connection) { connection.send(bytes); });
}

CScript& CScript::sendPieces(std::vector<std::string> pieces)
{
    return add(
        "sendPieces", [pieces = std::move(pieces)](CScriptedConnection& connection) { connection.sendPieces(pieces); });
}

CScript& CScript::sendRepeated(std::string block, size_t count)
{
    return add("sendRepeated",
        [block = std::move(block), count](CScriptedConnection& connection) { connection.sendRepeated(block, count); });
}

CScript& CScript::sendAndClose(std::string bytes)
{
    return add("sendAndClose",
        [bytes = std::move(bytes)](CScriptedConnection& connection) { connection.sendAndClose(bytes); });
}

CScript& CScript::stall()
{
    return add("stall", [](CScriptedConnection& connection) { connection.stall(); });
}

CScript& CScript::waitFor(std::shared_future<void> gate)
{
    return add("waitFor", [gate = std::move(gate)](CScriptedConnection& connection) { connection.waitFor(gate); });
}

CScript& CScript::startTLS(std::filesystem::path certificateFile, std::filesystem::path keyFile)
{
    return add("startTLS",
        [certificateFile = std::move(certificateFile), keyFile = std::move(keyFile)](
            CScriptedConnection& connection) { connection.startTLS(certificateFile, keyFile); });
}

CScript& CScript::reset()
{
    return add("reset", [](CScriptedConnection& connection) { connection.reset(); });
}

CScript& CScript::close()
{
    return add("close", [](CScriptedConnection& connection) { connection.close(); });
}

CScript& CScript::closeTLS()
{
    return add("closeTLS", [](CScriptedConnection& connection) { connection.closeTLS(); });
}

CScript& CScript::closeHard()
{
    return add("closeHard", [](CScriptedConnection& connection) { connection.closeHard(); });
}

const CScript::CStep* CScript::step(size_t index) const
{
    const std::lock_guard lock(m_mutex);
    return index < m_steps.size() ? &m_steps[index] : nullptr;
}

CScript& CScript::add(std::string name, std::function<void(CScriptedConnection&)> action)
{
    const std::lock_guard lock(m_mutex);
    m_steps.push_back({std::move(name), std::move(action)});
    return *this;
}

} // namespace support

// One node from creation to a verdict in an emulated device; see nodesession.h.
#include "chihost/emulator/nodesession.h"

#include <dirent.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace chihost
{

namespace
{
const char kReportPath[]  = "/data/vendor/camera/oisverify/oisVerify.json";
const char kOutputFolder[] = "/data/vendor/camera/oisverify";
} // namespace

bool IsFinalState(INT32 state)
{
    return state == 4 || state < 0;
}

NodeSession::~NodeSession()
{
    Close();
}

Status NodeSession::Open(const NodeSessionOptions& options)
{
    Status status = m_root.Open(options.root);
    if (status && options.prepareRoot)
    {
        status = options.prepareRoot(m_root);
    }
    if (status)
    {
        status = m_host.Open(options.nodeLibraryPath, options.host);
    }
    if (!status)
    {
        Close();
        return status;
    }
    NodeCreateOutcome created = m_host.CreateNode(options.nodeProperties, 0, 0, 0);
    m_createResult            = created.result;
    if (created.result != CDKResultSuccess || created.hNode == nullptr)
    {
        return Status::Error("the node refused creation with result " + std::to_string(created.result));
    }
    m_hNode       = created.hNode;
    m_negotiation = NegotiateBuffers(m_host, m_hNode, options.frameWidth, options.frameHeight);
    m_driver.reset(new RequestDriver(m_host, m_hNode, options.app ? options.app : StartThenVerifyApp()));
    if (options.frameRateHz > 0.0)
    {
        m_driver->UseSimulatedClock(options.clockStartNs, static_cast<UINT64>(1.0e9 / options.frameRateHz + 0.5));
    }
    return Status::Ok();
}

void NodeSession::Close()
{
    m_driver.reset();
    if (m_hNode != nullptr)
    {
        m_host.DestroyNode(m_hNode);
        m_hNode = nullptr;
    }
    m_host.Close();
    m_root.Close();
}

void NodeSession::SetInputProvider(InputProvider provider)
{
    if (m_driver)
    {
        m_driver->SetInputProvider(std::move(provider));
    }
}

RequestRecord NodeSession::Step()
{
    return m_driver ? m_driver->Submit() : RequestRecord();
}

std::vector<RequestRecord> NodeSession::Run(UINT64 maxRequests,
                                            const std::function<bool(const RequestRecord&)>& onRequest)
{
    std::vector<RequestRecord> records;
    for (UINT64 i = 0; i < maxRequests && m_driver; i++)
    {
        records.push_back(Step());
        const RequestRecord& last = records.back();
        if ((onRequest && !onRequest(last)) || (last.published.hasState && IsFinalState(last.published.state)))
        {
            break;
        }
    }
    return records;
}

std::string NodeSession::ReadReport() const
{
    std::ifstream      in(m_root.Map(kReportPath), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string NodeSession::OutputDirectory() const
{
    return m_root.Map(kOutputFolder);
}

std::vector<std::string> NodeSession::OutputFiles() const
{
    std::vector<std::string> names;
    DIR*                     pDirectory = opendir(OutputDirectory().c_str());
    for (struct dirent* pEntry = (pDirectory != nullptr) ? readdir(pDirectory) : nullptr; pEntry != nullptr;
         pEntry = readdir(pDirectory))
    {
        if (pEntry->d_name[0] != '.')
        {
            names.push_back(pEntry->d_name);
        }
    }
    if (pDirectory != nullptr)
    {
        closedir(pDirectory);
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace chihost

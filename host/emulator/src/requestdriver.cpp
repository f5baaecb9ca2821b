// Request loop with the test app's side; see requestdriver.h.
#include "chihost/emulator/requestdriver.h"

#include <string.h>

namespace chihost
{

const char* const kOisVerifySection = "com.zelk.node.oisverify";

AppPolicy StartThenVerifyApp()
{
    return [](UINT64 requestIndex, const PublishedInfo&) {
        AppRequest request;
        request.state = (requestIndex == 0) ? 1 : 3;
        return request;
    };
}

RequestDriver::RequestDriver(HostSession& session, CHIHANDLE hNode, AppPolicy policy)
    : m_session(session), m_hNode(hNode), m_policy(std::move(policy))
{
}

PublishedInfo RequestDriver::ReadPublished(UINT64 frameNum) const
{
    PublishedInfo info;
    info.hasSupportedFeature = m_session.ReadOutputValue(frameNum, kOisVerifySection, "SupportedFeature",
                                                         &info.supportedFeature).IsOk();
    info.hasState = m_session.ReadOutputValue(frameNum, kOisVerifySection, "oisState", &info.state).IsOk();
    info.hasSR    = m_session.ReadOutputValue(frameNum, kOisVerifySection, "oisXAxisSR", &info.horSR).IsOk() &&
                 m_session.ReadOutputValue(frameNum, kOisVerifySection, "oisYAxisSR", &info.verSR).IsOk();
    return info;
}

RequestRecord RequestDriver::Submit(const std::vector<CHINODEBUFFERHANDLE>& inputs)
{
    RequestRecord record;
    record.frameNum = m_nextFrame++;
    record.asked    = m_policy ? m_policy(m_requestIndex, m_last) : AppRequest{ false, 0 };
    m_requestIndex++;
    if (record.asked.writeState)
    {
        m_session.WriteInputValue(record.frameNum, kOisVerifySection, "oisState", record.asked.state);
    }

    std::vector<CHINODEBUFFERHANDLE> inputList(inputs);
    CHINODEPROCESSREQUESTINFO        request;
    memset(&request, 0, sizeof(request));
    request.size          = sizeof(request);
    request.hNodeSession  = m_hNode;
    request.frameNum      = record.frameNum;
    request.inputNum      = static_cast<UINT32>(inputList.size());
    request.phInputBuffer = inputList.empty() ? nullptr : inputList.data();
    record.result         = m_session.Callbacks().pProcessRequest(&request);

    record.published = ReadPublished(record.frameNum);
    m_last           = record.published;
    return record;
}

std::vector<RequestRecord> RequestDriver::Run(UINT64 count, const std::function<bool(const RequestRecord&)>& stop)
{
    std::vector<RequestRecord> records;
    for (UINT64 i = 0; i < count; i++)
    {
        records.push_back(Submit());
        if (stop && stop(records.back()))
        {
            break;
        }
    }
    return records;
}

} // namespace chihost

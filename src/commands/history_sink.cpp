#include "commands/history_sink.h"

#include "document/layer_stack.h"

int CRecordingHistory::AddStep(CLayerStack* document, int kind, int arg, const char* label)
{
    // As in the real log: a new step drops the steps that were undone.
    if (m_current < static_cast<int>(m_steps.size())) m_steps.resize(static_cast<size_t>(m_current));
    m_steps.push_back(Step{kind, arg, label ? label : "", document ? document->GetLayerCount() : -1});
    m_current = static_cast<int>(m_steps.size());
    return m_current;
}

int CRecordingHistory::Reset()
{
    Clear();
    ++m_resets;
    return 1;
}

int CRecordingHistory::Forward()
{
    return m_current < static_cast<int>(m_steps.size()) ? JumpTo(m_current + 1) : 0;
}

int CRecordingHistory::Backward()
{
    return m_current > 1 ? JumpTo(m_current - 1) : 0;
}

int CRecordingHistory::JumpTo(int step)
{
    if (step == m_current) return 1;
    if (step < 1 || step > static_cast<int>(m_steps.size())) return 0;
    m_current = step;
    return 1;
}

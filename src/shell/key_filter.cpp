#include "shell/key_filter.h"

#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTextEdit>

#include "shell/main_frame.h"

namespace {

bool IsTextField(const QWidget* w)
{
    if (!w) return false;
    if (qobject_cast<const QLineEdit*>(w) || qobject_cast<const QAbstractSpinBox*>(w)) return true;
    if (const auto* edit = qobject_cast<const QTextEdit*>(w)) return !edit->isReadOnly();
    if (const auto* plain = qobject_cast<const QPlainTextEdit*>(w)) return !plain->isReadOnly();
    if (const auto* combo = qobject_cast<const QComboBox*>(w)) return combo->isEditable();
    return false;
}

} // namespace

CKeyFilter::CKeyFilter(CMainFrame* frame) : QObject(frame), m_pFrame(frame) {}

bool CKeyFilter::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::KeyPress) return false;
    auto* target = qobject_cast<QWidget*>(watched);
    if (!target || target->window() != m_pFrame) return false;
    if (QApplication::activeModalWidget() || QApplication::activePopupWidget()) return false;
    if (IsTextField(QApplication::focusWidget()) || m_pFrame->IsWorkerBusy()) return false;
    const auto* key = static_cast<QKeyEvent*>(event);
    const Qt::KeyboardModifiers mods = key->modifiers();
    // A key with Alt belongs to the menu bar.
    if (mods & Qt::AltModifier) return false;
    return m_pFrame->HandleShortcut(key->key(), mods & Qt::ControlModifier, mods & Qt::ShiftModifier);
}

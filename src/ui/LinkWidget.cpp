#include "ui/LinkWidget.h"

#include <QApplication>
#include <QDrag>
#include <QMimeData>
#include <QMouseEvent>

namespace {
const int kIconSize = 24;
}

LinkWidget::LinkWidget(QWidget *parent) : QLabel(parent)
{
    setObjectName(QStringLiteral("link_widget"));
    setFixedSize(kIconSize + 4, kIconSize + 4);
    setAlignment(Qt::AlignCenter);
    const QString tip = QStringLiteral("Drag onto another kavri to link!");
    setStatusTip(tip);
    setWhatsThis(tip);
    setToolTip(QStringLiteral("In order to couple two players, drag the sync icon over the other player's window. "
                              "Click this button to unlink the players."));
    setLinked(false);
}

void LinkWidget::setLinked(bool linked)
{
    m_linked = linked;
    const QPixmap pm(linked ? QStringLiteral(":/frame/sync_red.png") : QStringLiteral(":/frame/sync.png"));
    setPixmap(pm.scaled(kIconSize, kIconSize, Qt::KeepAspectRatio, Qt::SmoothTransformation));
}

void LinkWidget::mousePressEvent(QMouseEvent *e)
{
    if (e->button() == Qt::LeftButton) m_pressPos = e->position().toPoint();
    QLabel::mousePressEvent(e);
}

void LinkWidget::mouseMoveEvent(QMouseEvent *e)
{
    if (!(e->buttons() & Qt::LeftButton) || m_pressPos == QPoint(-1, -1) || !m_handler) return;
    if ((e->position().toPoint() - m_pressPos).manhattanLength() < QApplication::startDragDistance()) return;
    m_pressPos = QPoint(-1, -1);
    auto *mime = new QMimeData;
    mime->setData(QStringLiteral("kavriSynchPacket"), m_handler->linkDragPayload());
    auto *drag = new QDrag(this);
    drag->setMimeData(mime);
    drag->setPixmap(QPixmap(QStringLiteral(":/frame/sync_red.png")).scaledToWidth(width(), Qt::SmoothTransformation));
    QApplication::setOverrideCursor(Qt::DragLinkCursor);
    const Qt::DropAction result = drag->exec(Qt::LinkAction);
    QApplication::restoreOverrideCursor();
    if (result == Qt::IgnoreAction)
        m_handler->linkDragFailed();
    else
        m_handler->linkDragSucceeded();
}

void LinkWidget::mouseReleaseEvent(QMouseEvent *e)
{
    const bool click = e->button() == Qt::LeftButton && m_pressPos != QPoint(-1, -1);
    m_pressPos = QPoint(-1, -1);
    QLabel::mouseReleaseEvent(e);
    if (click) emit clicked();
}

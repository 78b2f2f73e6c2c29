// The link icon of the lower panel: a click asks to unlink, dragging it onto another player links the two.
#pragma once

#include <QLabel>

class LinkWidget : public QLabel {
    Q_OBJECT
public:
    // Supplies the payload of a link drag and learns how the drag ended.
    class IDragHandler {
    public:
        virtual ~IDragHandler() = default;
        virtual QByteArray linkDragPayload() = 0; // the link name
        virtual void linkDragSucceeded() = 0;
        virtual void linkDragFailed() = 0;
    };

    explicit LinkWidget(QWidget *parent = nullptr);
    void setDragHandler(IDragHandler *h) { m_handler = h; }
    void setLinked(bool linked);
    bool linked() const { return m_linked; }

signals:
    void clicked();

protected:
    void mousePressEvent(QMouseEvent *e) override;
    void mouseMoveEvent(QMouseEvent *e) override;
    void mouseReleaseEvent(QMouseEvent *e) override;

private:
    IDragHandler *m_handler = nullptr;
    QPoint m_pressPos{-1, -1};
    bool m_linked = false;
};

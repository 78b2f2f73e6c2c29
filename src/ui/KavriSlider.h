// The position slider under the picture.
#pragma once

#include <QSlider>

class KavriSlider : public QSlider {
    Q_OBJECT
public:
    explicit KavriSlider(QWidget *parent = nullptr);
};

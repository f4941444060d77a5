#pragma once

#include "ui/settings/SetRow.h"

class V3Button;
class V3Text;

// A row that shows a folder's path and a button that chooses another one.
class SetRowFolder : public SetRow {
    Q_OBJECT
public:
    explicit SetRowFolder(const QString& label, QWidget* parent = nullptr);

    void setPath(const QString& path);
    QString path() const { return folder; }
    V3Button* chooseButton() const { return choose; }

signals:
    void chooseRequested();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void showPath();

    QString folder;
    V3Text* pathText;
    V3Button* choose;
};

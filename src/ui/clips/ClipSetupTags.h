#pragma once

#include <QStringList>
#include <QWidget>

#include <functional>

class QAbstractButton;
class QCompleter;
class QHBoxLayout;
class QLineEdit;

// A card's free setup tags ("breakout", "A+"): a chip for each, which a press removes, and a field
// that adds what is typed on Return, completing from the tags the journal already has. Every change
// goes through `apply` as the whole list.
class ClipSetupTags : public QWidget {
    Q_OBJECT
public:
    static constexpr int height = 22;

    explicit ClipSetupTags(std::function<void(const QStringList&)> apply, QWidget* parent = nullptr);

    void setTags(const QStringList& tags);
    const QStringList& tags() const { return shown; }
    // What the field offers as the user types.
    void setCompletions(const QStringList& tags);

    QLineEdit* field() const { return input; }
    QList<QAbstractButton*> chips() const { return chipButtons; }

private:
    void add();

    std::function<void(const QStringList&)> apply;
    QStringList shown;
    QHBoxLayout* row;
    QList<QAbstractButton*> chipButtons;
    QLineEdit* input;
    QCompleter* completer;
};

#include "ui/clips/ClipCard.h"

#include "journal/ClipNameParser.h"
#include "journal/ClipThumbnailer.h"
#include "ui/clips/ClipEdits.h"
#include "ui/clips/ClipNotesEditor.h"
#include "ui/clips/ClipSetupTags.h"
#include "ui/clips/ClipTagBar.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/Symbols.h"
#include "ui/kit/V3.h"
#include "ui/kit/V3Button.h"
#include "ui/kit/V3Field.h"

#include <QAbstractButton>
#include <QContextMenuEvent>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QVariantAnimation>

#include <cmath>

namespace {

constexpr int thumbGap = 8;
constexpr int nameHeight = 22;
constexpr int detailHeight = 30;
constexpr int rowGap = 6;
constexpr int toggleHeight = 24;
constexpr qreal cardRadius = 12;
constexpr qreal thumbRadius = 8;

int thumbnailHeight(int cardWidth)
{
    return int(std::lround((cardWidth - 2 * ClipCard::inset) * 10.0 / 16.0));
}

// The circular play control over the thumbnail: drawn while the pointer is over the card (or the
// keyboard is on it), fading in and growing by 6 % in 0.2 s.
class _PlayControl : public QAbstractButton {
public:
    static constexpr int diameter = 46;

    explicit _PlayControl(QWidget* parent)
        : QAbstractButton(parent)
        , animation(new QVariantAnimation(this))
    {
        setFixedSize(diameter + 4, diameter + 4);
        setAccessibleName(QStringLiteral("Play"));
        setToolTip(QStringLiteral("Play"));
        setFocusPolicy(Qt::TabFocus);
        setCursor(Qt::PointingHandCursor);
        animation->setDuration(200);
        animation->setEasingCurve(QEasingCurve::InOutQuad);
        connect(animation, &QVariantAnimation::valueChanged, this, [this](const QVariant& v) {
            shown = v.toReal();
            update();
        });
    }

    void setHovered(bool on, bool animated)
    {
        const qreal target = on ? 1.0 : 0.0;
        if (animation->endValue().isValid() && animation->endValue().toReal() == target
            && animation->state() == QAbstractAnimation::Running)
            return;
        animation->stop();
        if (!animated || shown == target) {
            shown = target;
            animation->setEndValue(target);
            update();
            return;
        }
        animation->setStartValue(shown);
        animation->setEndValue(target);
        animation->start();
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        const qreal visible = std::max(shown, hasFocus() ? 1.0 : 0.0);
        if (visible <= 0) return;
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setOpacity(visible);
        const qreal d = diameter * (1.0 + 0.06 * visible);
        const QRectF circle(QPointF(width() / 2.0 - d / 2, height() / 2.0 - d / 2), QSizeF(d, d));
        p.setPen(QPen(QColor(255, 255, 255, 70), 1));
        p.setBrush(QColor(0, 0, 0, 150));
        p.drawEllipse(circle);
        if (hasFocus()) KitPaint::focusRing(p, circle, d / 2, V3::accent.resolve(this));
        const qreal glyph = d * 0.38;
        Symbols::paint(p,
            QRectF(circle.center().x() - glyph / 2 + d * 0.04, circle.center().y() - glyph / 2, glyph, glyph),
            QStringLiteral("play.fill"), Qt::white);
    }

private:
    QVariantAnimation* animation;
    qreal shown = 0;
};

// The clip's picture from its middle, or a placeholder until it arrives, with the length.
class _Thumbnail : public QWidget {
public:
    explicit _Thumbnail(QWidget* parent)
        : QWidget(parent)
    {
    }

    void setPreview(std::optional<ClipThumbnailer::ClipPreview> made)
    {
        preview = std::move(made);
        update();
    }
    bool hasPreview() const { return preview.has_value(); }

protected:
    void paintEvent(QPaintEvent*) override
    {
        const Appearance a = appearanceOf(this);
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setRenderHint(QPainter::SmoothPixmapTransform);
        const QRectF r = rect();
        QPainterPath clip;
        clip.addRoundedRect(r, thumbRadius, thumbRadius);
        p.setClipPath(clip);
        p.fillRect(r, V3::bgInset.resolve(a));
        if (!preview || preview->image.isNull()) {
            const qreal s = std::min(r.width(), r.height()) * 0.28;
            Symbols::paint(p, QRectF(r.center().x() - s / 2, r.center().y() - s / 2, s, s),
                QStringLiteral("film.stack"), V3::fgDim.resolve(a));
            return;
        }
        // Fills the frame; the picture's overflow is cut off evenly at both sides.
        const QSizeF image = preview->image.size();
        const qreal scale = std::max(r.width() / image.width(), r.height() / image.height());
        const QSizeF drawn = image * scale;
        p.drawImage(QRectF(r.center() - QPointF(drawn.width() / 2, drawn.height() / 2), drawn), preview->image);

        const QString length = ClipEdits::formatDuration(preview->duration);
        const QFont font = KitPaint::font(11, QFont::DemiBold);
        const qreal w = QFontMetricsF(font).horizontalAdvance(length) + 12;
        const QRectF badge(r.right() - w - 6, r.bottom() - 20 - 6, w, 20);
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(0, 0, 0, 160));
        p.drawRoundedRect(badge, 6, 6);
        p.setPen(Qt::white);
        p.setFont(font);
        p.drawText(badge, Qt::AlignCenter, length);
    }

private:
    std::optional<ClipThumbnailer::ClipPreview> preview;
};

// Return commits, Escape gives up; focus may wander without either.
class _RenameField : public QLineEdit {
public:
    using QLineEdit::QLineEdit;
    std::function<void()> escape;

protected:
    void keyPressEvent(QKeyEvent* event) override
    {
        if (event->key() == Qt::Key_Escape && escape) {
            escape();
            return;
        }
        QLineEdit::keyPressEvent(event);
    }
};

// The row that opens and closes the card's journal panel, and says what the panel holds.
class _JournalToggle : public QAbstractButton {
public:
    explicit _JournalToggle(QWidget* parent)
        : QAbstractButton(parent)
    {
        setFocusPolicy(Qt::TabFocus);
        setCursor(Qt::PointingHandCursor);
        setAttribute(Qt::WA_Hover);
    }

    void show(bool isOpen, bool hasNotes, bool hasLessons)
    {
        open = isOpen;
        notes = hasNotes;
        lessons = hasLessons;
        setText(open                 ? QStringLiteral("Hide journal")
                : (notes || lessons) ? QStringLiteral("Edit journal")
                                     : QStringLiteral("Add notes"));
        setAccessibleName(text());
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        const Appearance a = appearanceOf(this);
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QRectF r = rect();
        if (underMouse()) {
            p.setPen(Qt::NoPen);
            p.setBrush(V3::bgInset.resolve(a));
            p.drawRoundedRect(r, 6, 6);
        }
        if (hasFocus()) KitPaint::focusRing(p, r, 6, V3::accent.resolve(a));
        const bool written = notes || lessons;
        const QColor ink = written ? V3::accent.resolve(a) : V3::fgMute.resolve(a);
        Symbols::paint(p, QRectF(4, r.center().y() - 7, 14, 14), QStringLiteral("note.text"), ink);
        qreal x = 24;
        auto words = [&](const QString& text, const QColor& colour, QFont::Weight weight) {
            const QFont font = KitPaint::font(12, weight);
            p.setFont(font);
            p.setPen(colour);
            p.drawText(QRectF(x, 0, r.width() - x, r.height()), Qt::AlignLeft | Qt::AlignVCenter, text);
            x += QFontMetricsF(font).horizontalAdvance(text) + 5;
        };
        words(text(), ink, QFont::DemiBold);
        if (notes) words(QStringLiteral("· notes"), V3::fgFaint.resolve(a), QFont::Normal);
        if (lessons) words(QStringLiteral("· lessons"), V3::fgFaint.resolve(a), QFont::Normal);
        Symbols::paint(p, QRectF(r.right() - 18, r.center().y() - 5, 10, 10),
            open ? QStringLiteral("chevron.up") : QStringLiteral("chevron.down"), V3::fgFaint.resolve(a));
    }

private:
    bool open = false;
    bool notes = false;
    bool lessons = false;
};

} // namespace

ClipCard::ClipCard(ClipsScreenModel* clipsModel, QWidget* parent)
    : QWidget(parent)
    , model(clipsModel)
{
    setAttribute(Qt::WA_Hover);
    thumbnail = new _Thumbnail(this);
    auto* playControl = new _PlayControl(thumbnail);
    play = playControl;
    connect(play, &QAbstractButton::clicked, this, [this] { model->openClip(entry.id); });

    auto* field = new _RenameField(this);
    renameEdit = field;
    renameEdit->setPlaceholderText(QStringLiteral("Clip name"));
    renameEdit->setAccessibleName(QStringLiteral("Clip name"));
    renameEdit->setFont(KitPaint::font(13, QFont::DemiBold));
    V3Field::install(renameEdit);
    renameEdit->hide();
    field->escape = [this] { model->cancelRename(); };
    connect(renameEdit, &QLineEdit::textEdited, model, &ClipsScreenModel::setRenameText);
    // The clip is copied before each operation: one that lists the folder again may hand this card
    // another clip while it runs.
    connect(renameEdit, &QLineEdit::returnPressed, this, [this] { model->commitRename(QUrl(entry.id)); });

    rename = new V3Button(V3Button::Kind::ghost, {}, this);
    rename->setSymbol(QStringLiteral("square.and.pencil"));
    rename->setAccessibleName(QStringLiteral("Rename"));
    rename->setToolTip(QStringLiteral("Rename"));
    connect(rename, &QPushButton::clicked, this, [this] { model->startRename(entry.id); });

    share = new V3Button(V3Button::Kind::ghost, {}, this);
    share->setSymbol(QStringLiteral("square.and.arrow.up"));
    share->setAccessibleName(QStringLiteral("Share"));
    share->setToolTip(QStringLiteral("Share"));
    auto* shareMenu = new QMenu(share);
    shareMenu->addAction(QStringLiteral("Copy"), this, [this] { model->copyClip(entry.id); });
    shareMenu->addAction(QStringLiteral("Copy Path"), this, [this] { model->copyPath(entry.id); });
    share->setMenu(shareMenu);

    tags = new ClipTagBar([this](const ClipMeta& meta) { model->applyMeta(entry.id, meta); }, this);
    setupTags = new ClipSetupTags(
        [this](const QStringList& list) {
            ClipMeta meta = model->meta(entry.id);
            meta.tags = list;
            model->applyMeta(entry.id, meta);
        },
        this);

    toggle = new _JournalToggle(this);
    connect(toggle, &QAbstractButton::clicked, this, [this] { model->toggleJournal(entry.id); });

    for (const auto& [text, act] : { std::pair { QStringLiteral("Open"), &ClipsScreenModel::openClip },
             std::pair { QStringLiteral("Show in File Manager"), &ClipsScreenModel::revealClip },
             std::pair { QStringLiteral("Move to Trash"), &ClipsScreenModel::deleteClip } }) {
        auto* action = new QAction(text, this);
        connect(action, &QAction::triggered, this, [this, act = act] { (model->*act)(QUrl(entry.id)); });
        actions.push_back(action);
    }
}

int ClipCard::heightFor(int width, bool expanded)
{
    const int base = inset + thumbnailHeight(width) + thumbGap + nameHeight + 2 + detailHeight + rowGap
        + ClipTagBar::height + rowGap + ClipSetupTags::height + rowGap + toggleHeight + inset;
    return expanded ? base + thumbGap + ClipNotesEditor::panelHeight : base;
}

void ClipCard::bind(const ClipsScreenModel::ClipEntry& clip)
{
    const bool sameClip = bound && clip.id == entry.id;
    entry = clip;
    bound = true;
    if (!sameClip) {
        delete notes;
        notes = nullptr;
        tags->setMeta(model->meta(entry.id), true);
        refreshThumbnail();
        setAccessibleName(name());
    }
    setAccessibleDescription(detail());
    refreshMeta();
    refreshEditing();
    refreshHover();
    update();
}

QString ClipCard::name() const
{
    return QFileInfo(entry.id.toLocalFile()).completeBaseName();
}

QString ClipCard::detail() const
{
    return ClipEdits::relativeDate(entry.modified, QDateTime::currentDateTime()) + QStringLiteral(" · ")
        + ClipEdits::byteCount(entry.size);
}

void ClipCard::refreshMeta()
{
    const ClipMeta meta = model->meta(entry.id);
    tags->setMeta(meta);
    setupTags->setTags(meta.tags);
    setupTags->setCompletions(model->knownTags());
    if (notes) notes->setMeta(meta);
    static_cast<_JournalToggle*>(toggle)->show(
        model->expandedId() == entry.id, !meta.notes.isEmpty(), !meta.mistakes.isEmpty());
}

void ClipCard::refreshEditing()
{
    const bool renaming = model->renamingId() == entry.id;
    if (renaming && !renameEdit->isVisible()) {
        renameEdit->setText(model->renameText());
        renameEdit->show();
        renameEdit->selectAll();
        renameEdit->setFocus(Qt::OtherFocusReason);
    } else if (!renaming && renameEdit->isVisible()) {
        renameEdit->hide();
    }

    const bool expanded = model->expandedId() == entry.id;
    if (expanded && !notes) {
        notes = new ClipNotesEditor(
            model->meta(entry.id), ClipNameParser::parse(entry.id).ticker,
            [this](const ClipMeta& meta) { model->applyMeta(entry.id, meta); }, this);
        notes->show();
    } else if (!expanded && notes) {
        delete notes;
        notes = nullptr;
    }
    refreshMeta();
    arrange();
    update();
}

void ClipCard::refreshHover()
{
    static_cast<_PlayControl*>(play)->setHovered(model->hoveredId() == entry.id, isVisible());
    update();
}

void ClipCard::refreshThumbnail()
{
    static_cast<_Thumbnail*>(thumbnail)->setPreview(model->thumbs()->preview(entry.id));
}

bool ClipCard::wantsThumbnail() const
{
    return bound && !static_cast<_Thumbnail*>(thumbnail)->hasPreview();
}

QRect ClipCard::thumbnailRect() const
{
    return { inset, inset, width() - 2 * inset, thumbnailHeight(width()) };
}

QRect ClipCard::nameRect() const
{
    return { inset, thumbnailRect().bottom() + 1 + thumbGap, width() - 2 * inset, nameHeight };
}

QRect ClipCard::detailRect() const
{
    return { inset, nameRect().bottom() + 1 + 2, width() - 2 * inset, detailHeight };
}

void ClipCard::arrange()
{
    const QRect thumb = thumbnailRect();
    thumbnail->setGeometry(thumb);
    play->move((thumb.width() - play->width()) / 2, (thumb.height() - play->height()) / 2);
    renameEdit->setGeometry(nameRect().adjusted(-2, -1, 2, 1));
    const QRect detailRow = detailRect();
    const QSize button = share->sizeHint();
    share->setGeometry(detailRow.right() + 1 - button.width(),
        detailRow.top() + (detailRow.height() - button.height()) / 2, button.width(), button.height());
    rename->setGeometry(share->x() - 4 - button.width(), share->y(), button.width(), button.height());
    const int tagsTop = detailRow.bottom() + 1 + rowGap;
    tags->setGeometry(inset, tagsTop, width() - 2 * inset, ClipTagBar::height);
    const int setupTop = tagsTop + ClipTagBar::height + rowGap;
    setupTags->setGeometry(inset, setupTop, width() - 2 * inset, ClipSetupTags::height);
    const int toggleTop = setupTop + ClipSetupTags::height + rowGap;
    toggle->setGeometry(inset - 4, toggleTop, width() - 2 * inset + 8, toggleHeight);
    if (notes)
        notes->setGeometry(
            inset, toggleTop + toggleHeight + thumbGap, width() - 2 * inset, ClipNotesEditor::panelHeight);
}

void ClipCard::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    arrange();
}

void ClipCard::paintEvent(QPaintEvent*)
{
    const Appearance a = appearanceOf(this);
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF card = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    const bool hovered = model->hoveredId() == entry.id;
    p.setPen(QPen(hovered ? V3::line.resolve(a) : V3::lineSoft.resolve(a), 1));
    p.setBrush(hovered ? KitPaint::mix(V3::bgCard.resolve(a), V3::bgElev.resolve(a), 0.6) : V3::bgCard.resolve(a));
    p.drawRoundedRect(card, cardRadius, cardRadius);

    const QFont nameFont = KitPaint::font(13, QFont::DemiBold);
    if (!renameEdit->isVisible()) {
        p.setFont(nameFont);
        p.setPen(V3::fg.resolve(a));
        const QRect r = nameRect();
        p.drawText(
            r, Qt::AlignLeft | Qt::AlignVCenter, QFontMetrics(nameFont).elidedText(name(), Qt::ElideMiddle, r.width()));
    }
    const QFont detailFont = KitPaint::font(11);
    p.setFont(detailFont);
    p.setPen(V3::fgFaint.resolve(a));
    const QRect d = detailRect().adjusted(0, 0, -(width() - rename->x()) - 4, 0);
    p.drawText(
        d, Qt::AlignLeft | Qt::AlignVCenter, QFontMetrics(detailFont).elidedText(detail(), Qt::ElideRight, d.width()));
}

void ClipCard::enterEvent(QEnterEvent* event)
{
    QWidget::enterEvent(event);
    model->setHovered(entry.id, true);
}

void ClipCard::leaveEvent(QEvent* event)
{
    QWidget::leaveEvent(event);
    model->setHovered(entry.id, false);
}

void ClipCard::contextMenuEvent(QContextMenuEvent* event)
{
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->addActions(actions.mid(0, 2));
    menu->addSeparator();
    menu->addAction(actions.at(2));
    // Not exec(): no second event loop inside a card that the grid may hand another clip.
    menu->popup(event->globalPos());
    event->accept();
}

bool ClipCard::event(QEvent* event)
{
    if (KitPaint::isAppearanceChange(event)) update();
    return QWidget::event(event);
}

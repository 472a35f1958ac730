#include "editor/form2.h"

#include "editor/codec.h"
#include "util/twips.h"

#include <algorithm>

#include <QAccessible>
#include <QAccessibleWidget>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QCoreApplication>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>
#include <QStringListModel>
#include <QStyle>
#include <QStyleOptionComboBox>
#include <QStyleOptionGroupBox>
#include <qdrawutil.h>
#include <QVBoxLayout>

namespace veltro {

namespace {
constexpr int kWidthTwips = 9600;

// A list box as wide as a fixed number of characters. A vehicle can have thousands of values,
// so the box is not sized by measuring its entries; QComboBox's own fixed-length policy would do
// that too, but setting it builds the popup (a list view, two scroll bars, two scrollers) at
// once for every box, which was most of the window's construction time.
class FixedWidthCombo : public QComboBox {
public:
    FixedWidthCombo(int characters, QWidget* parent) : QComboBox(parent), characters_(characters) {}

    QSize sizeHint() const override
    {
        QStyleOptionComboBox option;
        initStyleOption(&option);
        const QFontMetrics& fm = fontMetrics();
        const QSize text(characters_ * fm.horizontalAdvance(u'X'), std::max(fm.height(), 14) + 2);
        return style()->sizeFromContents(QStyle::CT_ComboBox, &option, text, this);
    }
    QSize minimumSizeHint() const override { return sizeHint(); }

private:
    int characters_;
};

// A frame with its caption, drawn as a plain etched border. The style's own group box stretches
// a translucent picture over the whole inside; on the configuration frame that cost more than
// painting every control in it.
class Frame : public QGroupBox {
public:
    Frame(const QString& caption, QWidget* parent) : QGroupBox(caption, parent) {}

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        QStyleOptionGroupBox option;
        initStyleOption(&option);
        const QRect label = style()->subControlRect(QStyle::CC_GroupBox, &option, QStyle::SC_GroupBoxLabel, this);
        const QRect frame = rect().adjusted(0, label.center().y(), 0, 0);
        qDrawShadeRect(&painter, frame, palette(), true, 1);
        const QRect caption = label.translated(8, 0).adjusted(-2, 0, 2, 0);
        painter.fillRect(caption, palette().window());
        style()->drawItemText(&painter, caption, Qt::AlignCenter | Qt::TextShowMnemonic, palette(), isEnabled(),
                              title(), QPalette::WindowText);
    }
};

// Qt gives a plain QWidget its generic accessible interface, role Client, even when it is a
// window of its own; on the Linux accessibility bus that is a "filler", which a screen reader
// does not announce. The editor is a window, so it says so; its name stays its title.
QAccessibleInterface* editorWindowInterface(const QString& className, QObject* object)
{
    if (className != QLatin1String(Form2::staticMetaObject.className()) || !object->isWidgetType())
        return nullptr;
    return new QAccessibleWidget(static_cast<QWidget*>(object), QAccessible::Window);
}

QStringList toQt(const std::vector<std::string>& texts)
{
    QStringList out;
    for (const std::string& t : texts)
        out << windows1252ToQString(t);
    return out;
}
} // namespace

Form2::Form2(std::string folder, EditorLink link, std::shared_ptr<Dialogs> dialogs, QWidget* parent)
    : QWidget(parent, Qt::Window),
      endProgram([](int code) { QCoreApplication::exit(code); }),
      decimalSeparator(systemDecimalSeparator()),
      folder_(std::move(folder)), link_(std::move(link)), dialogs_(std::move(dialogs))
{
    // First: Qt keeps the first interface it makes for the window, and the steps below may make one.
    QAccessible::installFactory(editorWindowInterface);
    setObjectName("Form2");
    setWindowTitle("VELTRO KONFIGURATION");
    setAttribute(Qt::WA_DeleteOnClose, false);

    auto named = [](auto* w, const char* name) {
        w->setObjectName(name);
        return w;
    };
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(tw(150), tw(90), tw(150), tw(90));
    outer->setSpacing(tw(90));

    Frame1 = named(new Frame("Fahrzeugauswahl", this), "Frame1");
    {
        auto* row = new QHBoxLayout(Frame1);
        Combo1 = named(new FixedWidthCombo(30, Frame1), "Combo1");
        Combo1->setAccessibleName("Fahrzeugauswahl");
        Command1 = named(new QPushButton("LADEN!", Frame1), "Command1");
        row->addWidget(Combo1, 1);
        row->addWidget(Command1);
    }
    outer->addWidget(Frame1);

    Frame2 = named(new Frame("Konfiguration", this), "Frame2");
    {
        auto* grid = new QGridLayout(Frame2);
        grid->setVerticalSpacing(3);
        grid->setHorizontalSpacing(tw(300));
        Label1 = named(new QLabel("Messwerte-Auswahl:", Frame2), "Label1");
        Label5 = named(new QLabel("Schalter-Auswahl:", Frame2), "Label5");
        Label6 = named(new QLabel("Anzeige-Geschwindigkeit:", Frame2), "Label6");
        Label7 = named(new QLabel("Automatisch umschalten:", Frame2), "Label7");
        Label2 = named(new QLabel("Batteriespannung:", Frame2), "Label2");
        Label3 = named(new QLabel("Warnung bei Spannung <:", Frame2), "Label3");
        for (int k = 0; k < kEditorListCount; ++k) {
            auto* box = new FixedWidthCombo(22, Frame2);
            box->setObjectName(QString("displayzeile_%1").arg(k));
            displayzeile[std::size_t(k)] = box;
        }
        for (int k = 0; k < kDisplayLineCount; ++k)
            displayzeile[std::size_t(k)]->setAccessibleName(QString("Messwerte-Auswahl Zeile %1").arg(k + 1));
        Label5->setBuddy(displayzeile[kSwitchList]);
        Label6->setBuddy(displayzeile[kSpeedList]);
        Label7->setBuddy(displayzeile[kSwitchingList]);
        displayzeile[kSwitchList]->setAccessibleName("Schalter-Auswahl");
        displayzeile[kSpeedList]->setAccessibleName("Anzeige-Geschwindigkeit");
        displayzeile[kSwitchingList]->setAccessibleName("Automatisch umschalten");
        batteriespannung = named(new QLineEdit("11,5", Frame2), "batteriespannung");
        batteriespannung->setAccessibleName("Warnung bei Spannung <");
        batteriespannung->setMaximumWidth(tw(1200));
        Label3->setBuddy(batteriespannung);
        const char* checks[3] = {"Anzeige \"bei Zündung aus\" aktiv", "Warnung Unterspannung aktiv",
                                 "Sleepmodus nach 24h aktivieren (Strom sparen)"};
        for (int i = 0; i < 3; ++i) {
            Check1[std::size_t(i)] = new QCheckBox(QString::fromUtf8(checks[i]), Frame2);
            Check1[std::size_t(i)]->setObjectName(QString("Check1_%1").arg(i));
        }
        Command3 = named(new QPushButton("Speichern und auf VELTRO laden!", Frame2), "Command3");
        Command4 = named(new QPushButton("Command4", Frame2), "Command4");

        // Left: the six display lines; right: switch, speed, switching and the voltage.
        grid->addWidget(Label1, 0, 0);
        for (int k = 0; k < kDisplayLineCount; ++k)
            grid->addWidget(displayzeile[std::size_t(k)], 1 + k, 0);
        grid->addWidget(Label5, 0, 1);
        grid->addWidget(displayzeile[kSwitchList], 1, 1);
        grid->addWidget(Label6, 2, 1);
        grid->addWidget(displayzeile[kSpeedList], 3, 1);
        grid->addWidget(Label7, 4, 1);
        grid->addWidget(displayzeile[kSwitchingList], 5, 1);
        grid->addWidget(Label2, 6, 1);
        auto* voltage = new QHBoxLayout;
        voltage->addWidget(Label3);
        voltage->addWidget(batteriespannung);
        voltage->addStretch(1);
        grid->addLayout(voltage, 7, 1);
        for (int i = 0; i < 3; ++i)
            grid->addWidget(Check1[std::size_t(i)], 7 + i, 0);
        auto* buttons = new QHBoxLayout;
        buttons->addWidget(Command3, 1);
        buttons->addWidget(Command4);
        grid->addLayout(buttons, 10, 0, 1, 2);
        grid->setColumnStretch(0, 1);
        grid->setColumnStretch(1, 1);
    }
    outer->addWidget(Frame2);
    outer->addStretch(1);
    Frame2->setVisible(false);
    resize(tw(kWidthTwips), tw(kEditorHeightVehicle));

    connect(Command1, &QPushButton::clicked, this, &Form2::Command1_Click);
    connect(Command3, &QPushButton::clicked, this, &Form2::Command3_Click);
    connect(Command4, &QPushButton::clicked, this, &Form2::Command4_Click);
}

bool Form2::step(const std::function<void()>& work)
{
    try {
        work();
        return true;
    } catch (const RuntimeError& e) {
        dialogs_->message("VELTRO", e.message());
        endProgram(e.number());
    } catch (const std::exception& e) {
        dialogs_->message("VELTRO", std::string("Laufzeitfehler:\n\n") + e.what());
        endProgram(1);
    }
    return false;
}

void Form2::Form_Load()
{
    if (step([this] { view = startEditorFromFolder(folder_, link_, decimalSeparator); })) {
        // "LADEN!" follows at once and shows everything; only the vehicle list is needed first.
        showVehicles(view);
        Command1_Click();
    }
}

void Form2::Command1_Click()
{
    view.vehicle = Combo1->currentIndex();
    if (step([this] { loadVehicleFromFolder(folder_, view, link_.btversion); }))
        display(view);
}

void Form2::Command3_Click()
{
    takeChoices();
    std::string upload;
    if (!step([&] { upload = saveEditor(folder_, link_.fwupdateser, view, decimalSeparator); }))
        return;
    hide();
    emit saved(QString::fromStdString(upload));
}

void Form2::Command4_Click()
{
    const auto& values = view.vehicleData.displayValues;
    const std::size_t length = values.empty() ? 0 : values.front().valueX.size();
    dialogs_->message("VELTRO", std::to_string(length));
}

void Form2::showVehicles(const EditorView& v)
{
    if (Combo1->count() != int(v.vehicleNames.size()))
        Combo1->setModel(new QStringListModel(toQt(v.vehicleNames), Combo1));
    Combo1->setCurrentIndex(v.vehicle);
    Combo1->setEnabled(v.vehicleEnabled);
    Command1->setEnabled(v.vehicleEnabled);
}

void Form2::display(const EditorView& v)
{
    showVehicles(v);

    const std::array<int, kEditorListCount> selected{
        v.choice.displayLines[0], v.choice.displayLines[1], v.choice.displayLines[2],
        v.choice.displayLines[3], v.choice.displayLines[4], v.choice.displayLines[5],
        v.choice.switchInput,     v.choice.speed,           v.choice.switching};
    // The six display lines share one list of the vehicle's values.
    if (!displayValues_)
        displayValues_ = new QStringListModel(this);
    QStringList names;
    names.reserve(qsizetype(v.vehicleData.displayValues.size()));
    for (const DisplayValue& d : v.vehicleData.displayValues)
        names << windows1252ToQString(d.name);
    displayValues_->setStringList(names);
    for (int k = 0; k < kEditorListCount; ++k) {
        QComboBox* box = displayzeile[std::size_t(k)];
        if (k < kDisplayLineCount) {
            if (box->model() != displayValues_)
                box->setModel(displayValues_);
        } else {
            box->clear();
            box->addItems(toQt(v.entries(k)));
        }
        box->setCurrentIndex(selected[std::size_t(k)]);
        box->setEnabled(v.listEnabled[std::size_t(k)]);
    }
    for (int i = 0; i < 3; ++i) {
        Check1[std::size_t(i)]->setChecked(v.choice.options[std::size_t(i)]);
        Check1[std::size_t(i)]->setEnabled(v.optionEnabled[std::size_t(i)]);
    }
    batteriespannung->setText(windows1252ToQString(v.choice.threshold));
    batteriespannung->setEnabled(v.thresholdEnabled);

    const bool full = v.heightTwips == kEditorHeightFull;
    Frame2->setVisible(full);
    if (size() != QSize(tw(kWidthTwips), tw(v.heightTwips)))
        resize(tw(kWidthTwips), tw(v.heightTwips));
}

void Form2::takeChoices()
{
    EditorChoice& c = view.choice;
    for (int k = 0; k < kDisplayLineCount; ++k)
        c.displayLines[std::size_t(k)] = displayzeile[std::size_t(k)]->currentIndex();
    c.switchInput = displayzeile[kSwitchList]->currentIndex();
    c.speed = displayzeile[kSpeedList]->currentIndex();
    c.switching = displayzeile[kSwitchingList]->currentIndex();
    for (int i = 0; i < 3; ++i)
        c.options[std::size_t(i)] = Check1[std::size_t(i)]->isChecked();
    c.threshold = qStringToWindows1252(batteriespannung->text());
}

void Form2::closeEvent(QCloseEvent* event)
{
    // Form_Unload
    if (!unloaded_) {
        unloaded_ = true;
        emit unloaded();
    }
    event->accept();
}

} // namespace veltro

#pragma once
#include "Record.h"

#include <orvi/core/Geometry.h>
#include <orvi/core/Time.h>
#include <orvi/core/Uuid.h>

#include <vector>

namespace apphost {

// The model of the objects application: the tasks of a team.

class Person : public Record {
    ORVI_DECLARE_PROPERTY(Person, Record);

public:
    orvi::String summary() const override { return name + L" <" + mail + L">"; }

    orvi::String name;
    orvi::String mail;
};

class Task : public Record {
    ORVI_DECLARE_PROPERTY(Task, Record);

public:
    orvi::String summary() const override;

    orvi::Uuid id{orvi::Uuid::CREATE};
    orvi::String title;
    orvi::Time due = orvi::time(nullptr);
    int priority = 3;
    std::vector<orvi::String> labels;
    orvi::Point_T<int> card; // where it lies on the board
    orvi::Handle_T<Person> owner;
};

class Bug : public Task {
    ORVI_DECLARE_PROPERTY(Bug, Task);

public:
    orvi::String summary() const override;

    orvi::String version;
    std::vector<orvi::String> steps;
    bool confirmed = false;
};

class Meeting : public Task {
    ORVI_DECLARE_PROPERTY(Meeting, Task);

public:
    orvi::String summary() const override;

    orvi::String room;
    int minutes = 30;
    std::vector<orvi::Handle_T<Person>> guests;
};

/** A task that is made of tasks of any class. */
class Project : public Task {
    ORVI_DECLARE_PROPERTY(Project, Task);

public:
    orvi::String summary() const override;

    double budget = 0;
    std::vector<orvi::Handle_T<Task>> tasks;
};

} // namespace apphost

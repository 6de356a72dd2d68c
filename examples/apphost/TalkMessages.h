#pragma once
#include <orvi/core/Message.h>
#include <orvi/core/Uuid.h>

namespace apphost {

// What the two sides of a talk send to each other.

class Saying : public orvi::Message {
    ORVI_DECLARE_MESSAGE(Saying, orvi::Message);

public:
    orvi::String speaker;
    orvi::String text;
};

/** One of the numbers from 1 to `last`, which come in this order. */
class Number : public orvi::Message {
    ORVI_DECLARE_MESSAGE(Number, orvi::Message);

public:
    orvi::Uuid run; // that of its count alone
    int value = 0;
    int last = 0;
    bool wantsAnswer = false; // a Counted
};

/** How far the other side has counted along. */
class Counted : public orvi::Message {
    ORVI_DECLARE_MESSAGE(Counted, orvi::Message);

public:
    orvi::Uuid run;
    int value = 0;
    bool inOrder = false;
};

class Question : public orvi::Message {
    ORVI_DECLARE_MESSAGE(Question, orvi::Message);

public:
    int left = 0;
    int right = 0;
};

/** The question with its sum. */
class Answer : public Question {
    ORVI_DECLARE_MESSAGE(Answer, Question);

public:
    int sum = 0;
};

} // namespace apphost

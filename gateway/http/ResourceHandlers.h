#pragma once

#include "gateway/http/Exchange.h"

/// What each row of the table of resources answers. Any thread; slow answers are made in a task.
namespace gk::gateway {

void answerCall(const Exchange& exchange);
void answerHost(const Exchange& exchange);
void answerModules(const Exchange& exchange);
void answerModule(const Exchange& exchange);
void answerKeys(const Exchange& exchange);
void answerGetKey(const Exchange& exchange);
void answerPutKey(const Exchange& exchange);
void answerEvents(const Exchange& exchange);
void answerVerdict(const Exchange& exchange);
void answerWords(const Exchange& exchange);
void answerPast(const Exchange& exchange);
void answerKeep(const Exchange& exchange);
void answerStatus(const Exchange& exchange);
void answerOpenApi(const Exchange& exchange);
void answerMetrics(const Exchange& exchange);
void answerAlive(const Exchange& exchange);
void answerReady(const Exchange& exchange);
void answerLogin(const Exchange& exchange);
void answerTicket(const Exchange& exchange);

/// A file of the page, for what no row of the table is about.
void answerFile(const HttpRequest& request, const Target& target, const Respond& respond);

} // namespace gk::gateway

// What a person does with a report, step by step; each step says what must be seen then. scripts/test-report adds this
// to a copy of the page and reads the title.
(async () => {
  const wait = () => new Promise(done => setTimeout(done, 50));
  const all = selector => [...document.querySelectorAll(selector)];
  const visible = element => element.checkVisibility();
  const shown = selector => all(selector).filter(visible);
  const problems = [];
  const expect = (what, holds) => { if (!holds) { problems.push(what); } };
  const type = async text => {
    const search = document.getElementById('search');
    search.value = text;
    search.dispatchEvent(new Event('input'));
    await wait();
  };
  const krconf = document.getElementById('db-krconf.nsf');

  location.hash = '';
  document.getElementById('fold').click();
  expect('folded, only the databases are seen', shown('.note').length === 0 && visible(krconf));
  krconf.querySelector('summary').click();
  expect('a database unfolds', krconf.open && shown('.note').length > 10);
  const note = krconf.querySelector('.note');
  note.querySelector('summary').click();
  expect('a document unfolds and shows its items', visible(note.querySelector('td.old')));
  document.getElementById('fold').click();
  expect('everything folds again', shown('.note').length === 0);
  document.getElementById('open').click();
  expect('every database unfolds', all('details.database').every(each => each.open));

  await type('katrin vorstand');
  expect('a search leaves what it finds', shown('.note').length === 0 || shown('.note').every(
    each => /katrin/i.test(each.textContent) && /vorstand/i.test(each.textContent)));
  await type('αποκλεισμός-nowhere');
  expect('a search for nothing leaves nothing', shown('details.database').length === 0 &&
    document.getElementById('count').textContent === '0 matches');
  await type('vorstand');
  expect('a search opens the database', krconf.open && shown('.note').length > 0 &&
    shown('.note').every(each => /vorstand/i.test(each.textContent)));
  expect('other databases go', shown('details.database').length < all('details.database').length);
  await type('');
  expect('an empty search brings all back', shown('details.database').length === all('details.database').length);

  document.getElementById('fold').click();
  const target = all('.note').find(each => each.closest('#db-krconf\\.nsf'));
  location.hash = '#' + target.id;
  await wait();
  expect('a link opens what it leads to', target.open && visible(target.querySelector('.unid')));
  const top = target.getBoundingClientRect().top;
  expect('and shows it', top >= 0 && top < innerHeight);
  for (const link of all('a[href^="#"]')) {
    expect('the link ' + link.getAttribute('href') + ' leads somewhere',
      document.getElementById(link.getAttribute('href').slice(1)));
  }
  const ids = all('[id]').map(each => each.id);
  expect('no two places have one name', new Set(ids).size === ids.length);
  document.getElementById('open').click();
  all('details').forEach(each => { each.open = true; });
  expect('nothing is wider than the screen', document.documentElement.scrollWidth <= innerWidth);
  document.title = problems.length ? 'steps: ' + problems.join('; ') : 'steps: all well';
})();
